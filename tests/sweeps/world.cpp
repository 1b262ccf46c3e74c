#include "tests/sweeps/world.h"

#include <limits>

#include "tests/simulation/sim_paths.h"
#include "tests/sweeps/digest.h"

namespace launcher_stub::sweeps {
namespace {

using sim::SimOs;

constexpr std::uint64_t firstLifeMs = 300'000;
constexpr std::uint64_t betweenLivesMs = 10'000'000;

bool isAttempt(const std::wstring& key) { return sim::lastElementOf(sim::parentOf(key)) == L"attempts"; }

bool generationsAreAtTheirEnd(SimOs& machine) {
  constexpr std::uint64_t nearTheEnd = std::numeric_limits<std::uint64_t>::max() - 3;
  const std::optional<BootState> previous = machine.previousState();
  return machine.generation() >= nearTheEnd || (previous && previous->generation >= nearTheEnd);
}

std::string findingsOf(SimOs& machine, const Ledger& ledger) {
  std::string text = ledger.report();
  for (const std::string& problem : machine.takeProblems()) text += problem + "\n";
  return text;
}

}  // namespace

std::string undisturbedLaunch(SimOs& machine, const Ledger& ledger) {
  const bool atTheEnd = generationsAreAtTheirEnd(machine);
  const std::string startable = ledger.startable();
  const int triesBefore = machine.count(sim::Call::createProcess);
  machine.runLauncher();
  std::string wrong = findingsOf(machine, ledger);
  const std::vector<std::string> started = machine.started();
  const bool says = machine.boxes().size() == 1;
  if (started.empty() && !says) wrong += "an undisturbed launch did nothing and said nothing\n";
  const bool exempt = atTheEnd && machine.lineCount("generation overflow") == 1;
  const bool couldNotStart = machine.count(sim::Call::createProcess) > triesBefore;
  if (started.empty() && !startable.empty() && !exempt && !couldNotStart) {
    wrong += "an undisturbed launch did not start anything, though it could have started " + startable + "\n";
  }
  return wrong;
}

bool isNeverLookedAt(const std::wstring& key) {
  const bool liesInAttempt = !isAttempt(key) && key.find(L"\\attempts\\") != std::wstring::npos;
  return liesInAttempt || key.find(L".tmp-") != std::wstring::npos;
}

std::uint64_t digestOf(const World& world) {
  Digest digest;
  for (const auto& [key, node] : world.disk.nodes()) {
    if (isNeverLookedAt(key)) continue;
    digest.add(key);
    digest.add(node);
    if (isAttempt(key)) digest.add(node.lastWriteTime);
  }
  digest.add(world.history.trial);
  digest.add(static_cast<std::uint64_t>(world.history.trialStarts));
  for (const std::string& taken : world.history.taken) digest.add(taken);
  return digest.value();
}

Life::Life(const Scenario& scenario, Disturbed disturbed, const World* world)
    : lives_(world != nullptr ? world->livesBefore : 0),
      machine_(firstLifeMs + static_cast<std::uint64_t>(lives_) * betweenLivesMs) {
  machine_.setRandomSeed(1'000 + static_cast<std::uint64_t>(lives_));
  scenario.prepare(machine_);
  machine_.disk().settle();
  if (world != nullptr) {
    machine_.disk() = world->disk;
    machine_.disk().settle();
  }
  if (disturbed == Disturbed::yes && scenario.disturb != nullptr) scenario.disturb(machine_);
  ledger_.emplace(machine_, world != nullptr ? world->history : History{});
}

std::string Life::findings() { return findingsOf(machine_, *ledger_); }

std::string runUndisturbed(const Scenario& scenario, const World& world) {
  World afterwards;
  {
    Life first(scenario, Life::Disturbed::no, &world);
    const std::string wrong = undisturbedLaunch(first.machine(), first.ledger());
    if (!wrong.empty()) return wrong + first.machine().trace();
    afterwards = first.worldWith(first.machine().disk());
  }
  Life second(scenario, Life::Disturbed::no, &afterwards);
  std::string wrong = undisturbedLaunch(second.machine(), second.ledger());
  // At the end of the generations nothing can be written any more, so every launch finds the same.
  const bool repairs =
      second.ledger().reached().contains("recovery") && !second.ledger().reached().contains("generation overflow");
  if (repairs) wrong += "the launch after a recovery found something to repair\n";
  return wrong.empty() ? wrong : wrong + second.machine().trace();
}

}  // namespace launcher_stub::sweeps
