#include "tests/explain/random_roots.h"

#include <limits>
#include <vector>

#include "tests/sweeps/chance.h"

namespace launcher_stub::explain {
namespace {

using sim::Runtime;
using sim::SimOs;
using sweeps::Chance;

constexpr std::uint64_t lastGeneration = std::numeric_limits<std::uint64_t>::max();
const std::vector<std::string> slotNames = {"aaaa", "bbbb", "cccc", "dddd"};
const std::vector<std::string> requestIds = {"request-1", "request-2", "request-3"};

std::optional<std::string> maybe(Chance& chance, const std::vector<std::string>& names, std::uint64_t oneInIsNone) {
  if (chance.oneIn(oneInIsNone)) return std::nullopt;
  return chance.pick(names);
}

std::uint64_t randomGeneration(Chance& chance) {
  return chance.oneIn(8) ? lastGeneration - chance.below(3) : chance.below(4);
}

BootState randomState(Chance& chance) {
  BootState state;
  state.generation = randomGeneration(chance);
  state.active = maybe(chance, slotNames, 5);
  state.previous = maybe(chance, slotNames, 3);
  state.candidate = maybe(chance, slotNames, 3);
  state.lastRequestId = maybe(chance, requestIds, 3);
  state.attemptCount = static_cast<std::uint32_t>(chance.below(5));
  for (const std::string& slot : slotNames) {
    if (chance.oneIn(7)) state.rejected.push_back(slot);
  }
  if (chance.oneIn(12)) state.rejected.resize(maxRejectedSlots, "0123");
  state.recovered = chance.oneIn(8);
  return state;
}

// A document that is there and cannot be used.
std::string spoiled(Chance& chance, const std::string& document) {
  switch (chance.below(7)) {
    case 0:
      return document.substr(0, document.size() / 2);
    case 1:
      return "{\"schemaVersion\":2,\"generation\":\"9\"}";
    case 2:
      return "{\"generation\":\"" + std::to_string(chance.oneIn(6) ? lastGeneration : chance.below(9)) + "\"}";
    case 3:
      return std::string(70'000, ' ') + document;  // larger than any document
    case 4:
      return {};
    case 5:
      return "[1]";
    default:
      return "{\"schemaVersion\":1,\"generation\":3,\"attemptCount\":0,\"active\":\"SEED\",\"rejected\":[]}";
  }
}

void layOutDocument(SimOs& sim, Chance& chance, const std::wstring& path, const std::string& document) {
  switch (chance.below(10)) {
    case 0:
    case 1:
      return;
    case 2:
    case 3:
      return sim.writeFile(path, spoiled(chance, document));
    case 4:
      // Not in the place of a state file: that the launcher could not write over it is not to be known by looking.
      if (path.ends_with(L"pending-v1.json")) return sim.makeDirectory(path);
      break;
    default:
      break;
  }
  sim.writeFile(path, document);
}

void layOutDelivery(SimOs& sim, Chance& chance, const std::string& slot) {
  const std::wstring path = sim.slotPath(slot, L"delivery-v1.json");
  const std::uint64_t pick = chance.below(8);
  if (pick < 5) return sim.writeFile(path, sim::deliveryDocument('d'));
  if (pick == 5) return sim.writeFile(path, sim::deliveryDocument('e'));
  if (pick == 6) return sim.writeFile(path, "{\"schemaVersion\":1,\"deliveryId\":\"d\"}");
}

void layOutSlot(SimOs& sim, Chance& chance, const std::string& slot) {
  if (chance.oneIn(10)) return;
  sim.install(slot, Runtime().readyAt(50));
  layOutDelivery(sim, chance, slot);
  if (chance.oneIn(8)) sim.remove(sim.slotPath(slot, L"COMPLETE-v1"));
  if (chance.oneIn(8)) sim.remove(sim.slotPath(slot, L"entry-v1.exe"));
}

void layOutBootstrap(SimOs& sim, Chance& chance) {
  sim.writeBootstrap(sim::bootstrapDocument(std::nullopt, chance.oneIn(12) ? 2 : 1));
}

}  // namespace

void layOutRandomly(SimOs& sim, std::uint64_t seed) {
  Chance chance(seed);
  sim.setRandomSeed(seed);
  layOutBootstrap(sim, chance);
  if (!chance.oneIn(6)) sim.installSeed(Runtime().readyAt(50));
  if (chance.oneIn(3)) layOutDelivery(sim, chance, "seed");
  for (const std::string& slot : slotNames) layOutSlot(sim, chance, slot);

  const BootState state = randomState(chance);
  layOutDocument(sim, chance, sim.statePath(L"boot-v1.json"), sim::bootStateDocument(state));
  layOutDocument(sim, chance, sim.statePath(L"boot-v1.previous.json"), sim::bootStateDocument(randomState(chance)));
  const std::uint64_t generation = chance.oneIn(3) ? randomGeneration(chance) : state.generation;
  const std::string request = sim::pendingDocument(chance.pick(requestIds), generation, chance.pick(slotNames));
  if (!chance.oneIn(4)) layOutDocument(sim, chance, sim.statePath(L"pending-v1.json"), request);
}

}  // namespace launcher_stub::explain
