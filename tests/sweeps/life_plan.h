// What kind of life a seed stands for. Each life leaves some kinds of event out altogether and has its own preferences
// among the rest: lives in which everything happens a little are all alike, and hide what needs quiet, or much of one
// thing.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "tests/sweeps/chance.h"

namespace launcher_stub::sweeps {

// What comes over a launch from outside.
enum class Blow {
  killAtChange,  // the launcher is killed
  killAtTime,
  powerCutAtChange,
  powerCutAtTime,
  powerCutBetween,  // while no launcher runs
  callFails,        // one call
  outageAtCall,
  outageAtTime,
  startFailsInOutage,  // the process cannot be created, and then the disk goes away
  secondAtCall,        // a second launcher
  secondAtTime,
  stateHeld,  // by a scanner
  lockHeld,
  directoryHeld,
  executableHeld,
  stateDamaged,
  previousDamaged,
  bothDamaged,
  slotDeleted,
  executableSpoiled,  // it is there and cannot be started
  seedGone,
  seedReplaced,    // by a newer installer
  requestLeft,     // by somebody who is not the runtime
  bootstrapNewer,  // for some launches
  bootstrapBad,    // for one launch
  ownerChanged,
  listDrifted,
  machineSleeps,  // for hours, while the launcher runs
  restartOfTheMachine,
  count_,
};

// What a runtime does besides its work.
enum class Act {
  update,  // writes a slot, leaves a request, perhaps a restart request
  slotOnly,
  request,  // for any slot, in any condition
  restart,
  strangeMarkers,
  grandchild,
  lingers,  // survives its termination for a while
  holds,    // a file or directory
  rubbish,  // in its attempt directory
  count_,
};

// How a runtime ends up, by what its build is like.
enum class Build { good, crashing, crashingLater, silent, late, count_ };

struct LifePlan {
  std::array<unsigned, static_cast<std::size_t>(Blow::count_)> blows{};  // weights; 0: never in this life
  std::array<unsigned, static_cast<std::size_t>(Act::count_)> acts{};
  std::array<unsigned, static_cast<std::size_t>(Build::count_)> builds{};
  unsigned mostBlows = 1;      // for one launch
  unsigned mostActs = 2;       // of one runtime
  unsigned quietOneIn = 8;     // launches that nothing disturbs
  unsigned longOneIn = 1'000;  // sessions of hours
  bool deliveries = true;      // installers and runtimes write delivery records
  bool volumeKeepsLists = true;
  bool memberOfAdministrators = false;
  bool nearTheLastGeneration = false;
  unsigned rejectedAtFirst = 0;
};

LifePlan drawPlan(Chance& chance);

std::string describe(const LifePlan& plan);

}  // namespace launcher_stub::sweeps
