// Selection of the runtime, and the rules of failure and rejection that lead to it. Internal to the decision step.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "state/launcher_model.h"

namespace launcher_stub {

// Whether a candidate can be tried, and if not the first thing that stands in the way.
enum class CandidateVerdict {
  canTry,
  trialsOff,     // no candidate is tried in this run
  cannotStart,   // there is none, or it is not runnable, or it has failed in this run
  startsUsedUp,  // it has been started as often as a candidate may
  rejected,      // it stands on the list of rejected slots
};
CandidateVerdict judgeCandidate(const LauncherModel& model);

// Whether `slot` names a slot that can be started and has not failed in this run.
bool canStart(const LauncherModel& model, const std::optional<std::string>& slot);

// Queues a write of the state without raising the generation.
void queueWrite(LauncherModel& model);

// Raises the generation and queues a write of the state that keeps the one in force as the previous copy. False: the
// generation is at its end; all effects queued so far are replaced by "generation overflow" and Exit 1.
bool queueBumpingWrite(LauncherModel& model, bool requireRunning = false);

// Replaces all effects by "generation overflow" and Exit 1.
void queueGenerationOverflow(LauncherModel& model);

// Puts `slot` on the rejected list, clears the candidate and queues a bumping write. False: as above.
bool rejectCandidate(LauncherModel& model, const std::string& slot);

// Chooses candidate, active, previous or seed, in this order, and queues its start; "No runnable runtime" and Exit 1
// when there is none. `now` is what the attempt record is given as its time.
void selectRuntime(LauncherModel& model, std::uint64_t now);

// The running attempt has failed: counts it, rejects a candidate that has used up its starts, and selects again.
// Does nothing unless a slot is selected.
void applyFailure(LauncherModel& model, const std::string& nextNonce, std::uint64_t now);

}  // namespace launcher_stub
