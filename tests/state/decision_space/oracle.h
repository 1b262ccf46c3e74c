// The decision step written a second time, sharing no code with the first: rule after rule in the order in which the
// rules are stated, without a thought for speed or reuse. Where the two disagree, one of them is wrong.
#pragma once

#include "state/decision.h"

namespace launcher_stub::decision_space {

LauncherModel expectedStart(const StartInput& input);
LauncherModel expectedTick(const LauncherModel& before, const TickInput& input);
LauncherModel expectedSpawn(const LauncherModel& before, const SpawnInput& input);
LauncherModel expectedExit(const LauncherModel& before, const ExitInput& input);

}  // namespace launcher_stub::decision_space
