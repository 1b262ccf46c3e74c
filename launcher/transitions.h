// The transitions of the boot state, and what happens while a durable write fails.
#pragma once

#include <cstdint>
#include <string_view>

#include "slots/launch_context.h"

namespace launcher_stub {

constexpr std::uint32_t commitRetryPauseMs = 250;
constexpr std::uint64_t writeFailureLimitMs = 30'000;  // of failure, before a transition is given up

// Commits `model`, trying again every 250 ms. `heldStateLock` as for applyTransition. False: 30 s have passed without
// success; the run ends with exit code 1, all messages have been written.
bool commitWithRetry(LaunchContext& context, const LauncherModel& model, os::LockFile* heldStateLock,
                     std::string_view transitionName);

// Notes a failed write: from 30 s of failure on, "cannot write launcher state" is reported once per run.
void noteWriteFailure(LaunchContext& context);

// While the last start has failed: lets the decision step choose what to start next, and commits that. True at once
// when the run has finished. False: a commit was given up; the run ends with exit code 1.
bool commitSpawnFailures(LaunchContext& context);

// The tick's own policy: one try a tick; after 30 s of failure, ticks that write are dropped until the next attempt.
struct TickWrites {
  std::uint64_t failureStart = 0;  // monotonic ms, 0 = none
  std::uint64_t lastLogTime = 0;   // monotonic ms, 0 = none
  bool dropping = false;
};
void commitTick(LaunchContext& context, LauncherModel model, TickWrites& writes, bool childEnded);

}  // namespace launcher_stub
