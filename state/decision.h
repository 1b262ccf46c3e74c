// The decision step: pure functions from a model and one input to a new model with its list of effects. Nothing here
// reads the world; times, nonces and what was found on disk come in as named fields. Every step starts with an empty
// effect list. Times are monotonic milliseconds.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "state/boot_state.h"
#include "state/launcher_model.h"
#include "state/pending_request.h"
#include "state/restart_request.h"

namespace launcher_stub {

// The two durations that come with every input.
struct Durations {
  std::uint64_t first = healthyWithinMs;
  std::uint64_t second = soakMs;
};

struct StartInput {
  std::optional<BootState> primary;              // from "boot-v1.json", if valid
  std::optional<BootState> backup;               // from "boot-v1.previous.json", if valid
  std::optional<std::uint64_t> generationFloor;  // probed from an invalid "boot-v1.json"
  bool firstRun = false;                         // neither file exists
  std::optional<PendingRequest> pending;
  SlotNames runnableSlots;
  SlotNames exempt;  // slots that were ignored because their delivery differs from the seed's
  bool seedRunnable = false;
  bool candidateTrialAllowed = false;
  std::string nextNonce;
  Durations durations;
  std::uint64_t now = 0;
};

struct TickInput {
  std::uint64_t now = 0;
  bool settledSeen = false;    // a matching "ready-v1"
  bool promotionSeen = false;  // a matching "healthy-v1"
  Durations durations;
};

struct SpawnInput {
  bool started = false;
  std::string nextNonce;
  Durations durations;
  std::uint64_t now = 0;
};

struct ExitInput {
  std::uint32_t exitCode = 0;
  bool restartPresent = false;            // "restart-v1.json" is there, in whatever condition
  std::optional<RestartRequest> restart;  // it was read and parsed
  std::optional<std::string> extraRequestId;
  std::string nextNonce;
  Durations durations;
  std::uint64_t now = 0;
};

// What becomes of a pending request at a start: the first that holds.
enum class RequestVerdict {
  notLookedAt,      // there is none to look at, or no stored state to hold it against, or it is not the time for it
  staleGeneration,  // it names another generation than the one in force
  replayed,         // it is the one that was taken in last
  rejectedSlot,
  slotNotRunnable,
  takenIn,
};

// What the first step has found on its way, for those who have to explain it.
struct StartFindings {
  bool candidateUsedUp = false;  // an earlier run has used up the candidate's starts: it is rejected now
  RequestVerdict request = RequestVerdict::notLookedAt;
  std::optional<std::uint64_t> requestGeneration;  // what a request has to name; none where none is looked at
};

// The first step of a launch iteration: which state to go on from, whether the pending request is taken in, what to
// start. Begins with a fresh model.
LauncherModel decideStart(const StartInput& input, StartFindings& findings);
inline LauncherModel decideStart(const StartInput& input) {
  StartFindings findings;
  return decideStart(input, findings);
}

// A look at the running attempt: stops a candidate that is not healthy in time, promotes one that has soaked.
LauncherModel decideTick(LauncherModel model, const TickInput& input);

// The result of a start; after a failed one the next runnable slot.
LauncherModel decideSpawn(LauncherModel model, const SpawnInput& input);

// True when the restart request of the attempt that runs in `model` counts: it was read, is of this very attempt, and
// names no request or one that is known here. Needs a selected slot.
bool asksForRelaunch(const LauncherModel& model, const ExitInput& input);

// The end of the running attempt: the next slot after a failure, a relaunch, or the end of the run.
LauncherModel decideExit(LauncherModel model, const ExitInput& input);

}  // namespace launcher_stub
