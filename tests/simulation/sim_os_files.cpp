// The machine's files as tests and other processes work with them, and the layout of an installation.
#include <algorithm>
#include <utility>

#include "tests/simulation/sim_os.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::sim {
namespace {

std::optional<BootState> stateIn(const std::string& document) {
  BootState state;
  std::string error;
  if (document.empty() || !readBootState(document, state, error)) return std::nullopt;
  return state;
}

}  // namespace

std::wstring SimOs::stateRoot() const {
  if (stateRoot_) return *stateRoot_;
  for (const std::wstring& entry : environment_) {
    if (entry.starts_with(L"LOCALAPPDATA=")) return entry.substr(13) + L"\\Quorvex\\tessellary\\native";
  }
  return L"C:\\Users\\u\\AppData\\Local\\Quorvex\\tessellary\\native";
}

std::wstring SimOs::slotPath(const std::string& slot, std::wstring_view name) const {
  const std::wstring directory = slot == "seed" ? installPath(L"seed") : statePath(L"slots\\" + widen(slot));
  return directory + L"\\" + std::wstring(name);
}

void SimOs::writePreviousState(const BootState& state) {
  writeFile(statePath(L"boot-v1.previous.json"), bootStateDocument(state));
}

void SimOs::writePending(const std::string& requestId, std::uint64_t expectedGeneration, const std::string& candidate) {
  writeFile(statePath(L"pending-v1.json"), pendingDocument(requestId, expectedGeneration, candidate));
}

void SimOs::writeDelivery(const std::string& slot, char digit) {
  writeFile(slotPath(slot, L"delivery-v1.json"), deliveryDocument(digit));
}

void SimOs::install(const std::string& slot, const Runtime& runtime) {
  install(slot, [runtime](int) { return runtime; });
}

void SimOs::install(const std::string& slot, std::initializer_list<Runtime> runtimes) {
  install(slot, [all = std::vector<Runtime>(runtimes)](int number) {
    const std::size_t index = static_cast<std::size_t>(number) - 1;
    return index < all.size() ? all[index] : all.back();
  });
}

void SimOs::install(const std::string& slot, RuntimeScript script) {
  const std::wstring executable = slotPath(slot, L"entry-v1.exe");
  writeFile(executable, "executable of " + slot);
  if (slot != "seed") writeFile(slotPath(slot, L"COMPLETE-v1"), "");
  setScript(slot, std::move(script));
}

void SimOs::setScript(const std::string& slot, RuntimeScript script) {
  scripts_[disk_.resolvedKey(slotPath(slot, L"entry-v1.exe"))] = {slot, std::move(script)};
}

std::string SimOs::slotOf(const std::wstring& executable) const {
  const auto found = scripts_.find(disk_.resolvedKey(executable));
  return found != scripts_.end() ? found->second.slot : printable(lastElementOf(parentOf(executable)));
}

void SimOs::writeFile(const std::wstring& path, std::string_view contents) {
  disk_.makeDirectories(parentOf(path), fileTime());
  const std::uint32_t error = write(path, contents);
  if (error != 0) problem("the test could not write " + printable(path) + ": error " + std::to_string(error));
  if (!running_) disk_.settle();  // prepared long before
}

std::uint32_t SimOs::write(const std::wstring& path, std::string_view contents) {
  if (openFiles_.excludes(disk_.resolvedKey(path), accessWrite)) return win32::sharingViolation;
  return disk_.writeFile(path, contents, fileTime());
}

void SimOs::remove(const std::wstring& path) {
  const Node* node = disk_.findItself(path);
  if (node == nullptr) return problem("the test removes what is not there: " + printable(path));
  if (node->kind == NodeKind::file) {
    disk_.attributes(path)->readOnly = false;
    openFiles_.detach(disk_.resolvedKey(path));
    (void)disk_.removeFile(path, fileTime());  // cannot fail: it is a writable file
    return;
  }
  if (node->kind == NodeKind::directory) {
    for (const Node& entry : disk_.list(path)) remove(path + L"\\" + entry.name);
  }
  (void)disk_.removeDirectory(path, fileTime());  // cannot fail: it is empty now, or a link
}

std::string SimOs::read(const std::wstring& path) const {
  const Node* node = disk_.find(path);
  return node != nullptr ? node->contents : std::string();
}

std::vector<std::wstring> SimOs::names(const std::wstring& path) const {
  std::vector<std::wstring> found;
  for (const Node& entry : disk_.list(path)) found.push_back(entry.name);
  return found;
}

std::optional<BootState> SimOs::bootState() const { return stateIn(read(statePath(L"boot-v1.json"))); }

std::optional<BootState> SimOs::previousState() const { return stateIn(read(statePath(L"boot-v1.previous.json"))); }

std::uint64_t SimOs::generation() const {
  const std::optional<BootState> state = bootState();
  return state ? state->generation : 0;
}

int SimOs::holdFile(const std::wstring& path, Access share) {
  if (disk_.find(path) == nullptr) writeFile(path, "");
  const int file = openFiles_.open(disk_.resolvedKey(path), accessRead, share, "another process");
  if (file == 0) {
    problem("the test could not hold " + printable(path) + ": it is held already");
    return 0;
  }
  holds_[++lastHold_] = file;
  note("another process holds", path, "");
  return lastHold_;
}

void SimOs::release(int hold) {
  const auto found = holds_.find(hold);
  if (found == holds_.end()) return problem("the test released a hold twice");
  openFiles_.release(found->second);
  holds_.erase(found);
  note("another process releases", {}, "hold " + std::to_string(hold));
}

void SimOs::holdFor(const std::wstring& path, std::uint64_t ms, Access share) {
  const int hold = holdFile(path, share);
  after(ms, [this, hold] { release(hold); });
}

bool SimOs::launcherHolds(std::wstring_view fileName) {
  return handles_.anyOpenFile(process_.run, [&](int number) {
    const OpenFile* file = openFiles_.find(number);
    return file != nullptr && pathMatches(file->key, fileName);
  });
}

void SimOs::beginReplacement(const std::wstring& path, std::string_view contents) {
  requireStateLock(path, "replaced");
  requirePreviousCopy(path, contents);
  observer_->replaces(path, contents);
}

// A higher generation may only be written when the state in force is safe in the previous copy. In force is what
// "boot-v1.json" says or, where it says nothing or could not be read for a moment, the previous copy itself.
void SimOs::requirePreviousCopy(const std::wstring& path, std::string_view contents) {
  if (!process_.runsLaunchSequence || process_.goesOnFromCopy) return;
  if (lastElementOf(pathKey(path)) != L"boot-v1.json") return;
  if (lastElementOf(parentOf(parentOf(pathKey(path)))) == L"attempts") return;
  const std::optional<BootState> inForce = stateIn(read(path));
  const std::optional<BootState> next = stateIn(std::string(contents));
  if (!inForce || !next || next->generation <= inForce->generation || next->recovered != inForce->recovered) return;
  const std::wstring copy = parentOf(path) + L"\\boot-v1.previous.json";
  const std::wstring key = disk_.resolvedKey(copy);
  const bool safe = std::ranges::none_of(disk_.unsettled(), [&](const UnsettledChange& one) { return one.key == key; });
  if (stateIn(read(copy)) != inForce || !safe) problem("a generation is raised before the previous copy is safe");
}

// The root of a state file: its directory, or, for an attempt's record, the one above "attempts".
void SimOs::requireStateLock(const std::wstring& path, std::string_view what) {
  const std::wstring key = pathKey(path);
  const std::wstring name = lastElementOf(key);
  if (!checksStateLock_ ||
      (name != L"boot-v1.json" && name != L"boot-v1.previous.json" && name != L"pending-v1.json")) {
    return;
  }
  std::wstring root = parentOf(key);
  if (lastElementOf(parentOf(root)) == L"attempts") root = parentOf(parentOf(root));
  const auto requireLock = [&](const wchar_t* lock) {
    if (launcherHolds(disk_.resolvedKey(root + L"\\" + lock))) return;
    problem(std::string(what) + " " + printable(path) + " without " + printable(lock));
  };
  requireLock(L"state.lock");
  if (process_.runsLaunchSequence) requireLock(L"launch.lock");
}

}  // namespace launcher_stub::sim
