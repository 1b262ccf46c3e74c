#include "tests/sweeps/installation.h"

#include <algorithm>
#include <limits>

#include "slots/file_names.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::sweeps {
namespace {

using sim::SimOs;

constexpr std::size_t mostSlots = 8;
constexpr std::uint64_t lastGeneration = std::numeric_limits<std::uint64_t>::max();
constexpr std::string_view hexDigits = "0123456789abcdef";

bool names(const BootState& state, const std::string& slot) {
  return state.active == slot || state.previous == slot || state.candidate == slot;
}

std::string cutShort(const std::string& document, Chance& chance) {
  return document.substr(0, chance.below(document.size() + 1));
}

}  // namespace

void hold(const Scene& scene, const std::wstring& path, sim::Access share, std::uint64_t ms) {
  SimOs& machine = *scene.machine;
  if (!machine.exists(path)) return;
  const int file = machine.openFiles().open(machine.disk().resolvedKey(path), sim::accessRead, share, "a scanner");
  if (file == 0) return;  // held by somebody else
  machine.note("a scanner holds", path, "");
  machine.after(ms, [&machine, file] { machine.openFiles().release(file); });
}

// --- The first day ---

void Installation::layOut() {
  writeSlotFiles("seed");
  setScripts();
  const bool nothingYet = !scene_.plan.nearTheLastGeneration && scene_.plan.rejectedAtFirst == 0;
  if (!nothingYet) writeFirstState();
  scene_.machine->disk().settle();
}

void Installation::writeFirstState() {
  BootState state;
  state.generation = scene_.plan.nearTheLastGeneration ? lastGeneration - scene_.chance.between(2, 40) : 7;
  for (unsigned i = 0; i < scene_.plan.rejectedAtFirst; ++i) state.rejected.push_back("dddd" + std::to_string(10 + i));
  put(scene_.machine->statePath(files::bootState), sim::bootStateDocument(state));
}

void Installation::setScript(const std::string& slot) {
  scene_.machine->setScript(slot, [this, slot](int) { return drawRuntime_(slot); });
}

// Also for what was deleted and has come back with a power cut.
void Installation::setScripts() {
  setScript("seed");
  for (const std::string& slot : slots_) setScript(slot);
  for (const std::wstring& name : scene_.machine->names(scene_.machine->statePath(files::slots))) {
    setScript(std::string(name.begin(), name.end()));
  }
}

// --- Slots ---

void Installation::put(const std::wstring& path, std::string_view contents) {
  SimOs& machine = *scene_.machine;
  machine.makeDirectory(sim::parentOf(path));
  (void)machine.write(path, contents);  // a file that is held stays as it is
}

std::string Installation::newSlotName() {
  SimOs& machine = *scene_.machine;
  const BootState state = machine.bootState().value_or(BootState{});
  while (slots_.size() >= mostSlots) {
    const std::size_t index = scene_.chance.below(slots_.size());
    const std::wstring directory = machine.statePath(L"slots\\" + sim::widen(slots_[index]));
    if (names(state, slots_[index]) && !scene_.chance.oneIn(20)) continue;
    if (machine.exists(directory)) machine.remove(directory);
    slots_.erase(slots_.begin() + static_cast<std::ptrdiff_t>(index));
  }
  std::string slot;
  for (std::uint64_t length = scene_.chance.between(4, 8); length > 0; --length) {
    slot += hexDigits[scene_.chance.below(16)];
  }
  slots_.push_back(slot);
  setScript(slot);
  return slot;
}

std::string Installation::anySlot() { return slots_.empty() ? newSlotName() : scene_.chance.pick(slots_); }

void Installation::writeSlotFiles(const std::string& slot) {
  SimOs& machine = *scene_.machine;
  const int build = slot == "seed" && !scene_.chance.oneIn(10) ? 0 : scene_.chance.weighted(scene_.plan.builds);
  put(machine.slotPath(slot, files::entry), "build " + std::to_string(build));
  if (!scene_.plan.deliveries) return;
  const std::string ofSeed = machine.read(machine.slotPath("seed", files::delivery));
  const bool matches = slot != "seed" && !scene_.chance.oneIn(8);
  put(machine.slotPath(slot, files::delivery),
      matches ? ofSeed : sim::deliveryDocument(hexDigits[scene_.chance.below(16)]));
  if (scene_.chance.oneIn(2)) machine.disk().flushFile(machine.slotPath(slot, files::entry));
}

void Installation::completeSlot(const std::string& slot) {
  if (!scene_.chance.oneIn(10)) put(scene_.machine->slotPath(slot, files::complete), "");
}

Build Installation::buildOf(const std::string& slot) const {
  const std::string executable = scene_.machine->read(scene_.machine->slotPath(slot, files::entry));
  const bool whole = executable.size() == 7 && executable.starts_with("build ");
  // What a power cut has torn cannot even begin.
  return whole ? static_cast<Build>(executable.back() - '0') : Build::crashing;
}

// --- Requests ---

std::string Installation::document(const std::string& id, std::uint64_t generation,
                                   const std::string& candidate) const {
  return sim::pendingDocument(id, generation, candidate);
}

void Installation::leaveRequest(const std::string& candidate) {
  const std::string id = "request-" + std::to_string(++lastRequest_);
  put(scene_.machine->statePath(files::pendingRequest), document(id, scene_.machine->generation(), candidate));
}

void Installation::leaveAnyRequest() {
  Chance& chance = scene_.chance;
  const BootState state = scene_.machine->bootState().value_or(BootState{});
  const std::string fresh = "request-" + std::to_string(++lastRequest_);
  const std::uint64_t now = state.generation;
  const std::string slot = anySlot();
  const auto text = [&]() -> std::string {
    switch (chance.below(9)) {
      case 0:
        return document(fresh, now + (chance.oneIn(2) ? 1 : ~std::uint64_t{0}), slot);  // another generation
      case 1:
        return document(state.lastRequestId.value_or(fresh), now, slot);  // again
      case 2:
        return document(fresh, now, state.rejected.empty() ? slot : chance.pick(state.rejected));
      case 3:
        return document(fresh, now, "0123456789");  // of a slot that never was
      case 4:
        return document(fresh, now, state.active.value_or(slot));
      case 5:
        return cutShort(document(fresh, now, slot), chance);
      case 6:
        return "{\"schemaVersion\":2}";
      case 7:
        return document(fresh, now, "seed");  // not a slot's name here
      default:
        return document(fresh, now, slot);
    }
  }();
  put(scene_.machine->statePath(files::pendingRequest), text);
}

// --- Between launches ---

void Installation::replaceSeed() {
  writeSlotFiles("seed");
  scene_.machine->disk().settle();
}

void Installation::removeSeed() {
  const std::wstring path = scene_.machine->slotPath("seed", files::entry);
  if (scene_.machine->exists(path)) scene_.machine->remove(path);
}

void Installation::deleteSlot() {
  const std::wstring path = scene_.machine->statePath(L"slots\\" + sim::widen(anySlot()));
  if (scene_.machine->exists(path)) scene_.machine->remove(path);
}

// The system finds a directory where the program should be.
void Installation::spoilExecutable() {
  SimOs& machine = *scene_.machine;
  const std::string slot = anySlot();
  const std::wstring path = machine.slotPath(slot, files::entry);
  if (machine.exists(path)) machine.remove(path);
  machine.makeDirectory(path);
}

void Installation::damage(std::wstring_view name) {
  SimOs& machine = *scene_.machine;
  Chance& chance = scene_.chance;
  const std::wstring path = machine.statePath(name);
  const std::string whole = machine.read(path);
  switch (chance.below(5)) {
    case 0:
      if (machine.exists(path)) machine.remove(path);
      break;
    case 1:
      return put(path, cutShort(whole, chance));
    case 2:
      return put(path, std::string(whole.size(), '\0'));
    case 3:  // only its generation can still be told
      return put(path, "{\"schemaVersion\":1,\"generation\":\"" +
                           std::to_string(std::min(machine.generation(), lastGeneration - 5) + chance.below(4)) +
                           "\"}");
    default:
      return put(path, "rubbish " + std::to_string(chance.below(1'000)));
  }
}

void Installation::damageState(bool current, bool previous) {
  if (current) damage(files::bootState);
  if (previous) damage(files::previousBootState);
  scene_.machine->disk().settle();
  scene_.ledger->stateWasChangedByOthers();
}

void Installation::restoreBootstrap() {
  SimOs& machine = *scene_.machine;
  const std::string right = sim::bootstrapDocument();
  if (machine.read(machine.installPath(files::bootstrap)) != right) machine.writeBootstrap(right);
}

void Installation::makeGood() {
  SimOs& machine = *scene_.machine;
  restoreBootstrap();
  if (machine.exists(machine.stateRoot())) machine.setOwner(machine.stateRoot(), sim::Owner::user);
  if (!machine.exists(machine.slotPath("seed", files::entry)) && scene_.chance.oneIn(2)) replaceSeed();
}

// Both files unreadable, or no generation left: nothing that the launcher does gets out of that.
void Installation::repairHopelessState() {
  SimOs& machine = *scene_.machine;
  const std::optional<BootState> state = machine.bootState() ? machine.bootState() : machine.previousState();
  const bool there = machine.exists(machine.statePath(files::bootState)) ||
                     machine.exists(machine.statePath(files::previousBootState));
  if (!there || (state && state->generation < lastGeneration - 1) || !scene_.chance.oneIn(6)) return;
  for (const std::wstring_view name : {files::bootState, files::previousBootState}) {
    if (machine.exists(machine.statePath(name))) machine.remove(machine.statePath(name));
  }
  if (scene_.chance.oneIn(2)) writeFirstState();
  machine.disk().settle();
  scene_.ledger->stateWasChangedByOthers();
  scene_.mark("state repaired by the support");
}

}  // namespace launcher_stub::sweeps
