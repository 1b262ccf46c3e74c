// A disk between two lives of its machine, and the run of a scenario on it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "tests/simulation/sim_os.h"
#include "tests/sweeps/ledger.h"
#include "tests/sweeps/scenarios.h"

namespace launcher_stub::sweeps {

// What a life leaves to the next one.
struct World {
  sim::Disk disk;
  History history;
  int livesBefore = 0;
};

// Of an entry that no launcher will look at again: temporary files; what lies in the directories of former attempts,
// which is only ever removed.
bool isNeverLookedAt(const std::wstring& key);

// Equal for worlds in which the launcher cannot tell the difference. Left out are what is never looked at, and all
// times but those of the attempts, by which they are pruned.
std::uint64_t digestOf(const World& world);

// A machine on which the scenario goes on from `world`, or begins, and its ledger. Each life has its own nonces and its
// own time, the same in every run.
class Life {
 public:
  enum class Disturbed { no, yes };
  explicit Life(const Scenario& scenario, Disturbed disturbed, const World* world = nullptr);

  sim::SimOs& machine() { return machine_; }
  Ledger& ledger() { return *ledger_; }
  // What a crash leaves that leaves this disk.
  World worldWith(sim::Disk disk) {
    History history = ledger_->historyAt(disk);
    return {std::move(disk), std::move(history), lives_ + 1};
  }

  // Everything that was noticed: misuse of the platform, and broken promises. Empties the former.
  std::string findings();

 private:
  int lives_;
  sim::SimOs machine_;
  std::optional<Ledger> ledger_;
};

// A launch on a machine that nothing disturbs. Says what is wrong; empty is what it should be. Counts on records that
// were cleared.
std::string undisturbedLaunch(sim::SimOs& machine, const Ledger& ledger);

// The last act after every crash: two launches that nothing disturbs. Says what is wrong; empty is what it should be.
// The first one runs what can be run, or says that there is nothing; the second one finds nothing to repair.
std::string runUndisturbed(const Scenario& scenario, const World& world);

}  // namespace launcher_stub::sweeps
