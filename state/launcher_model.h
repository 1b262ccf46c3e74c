// What the decision step works on: the durable state, and what this run has learnt.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "state/boot_state.h"
#include "state/transition_effect.h"

namespace launcher_stub {

constexpr std::uint64_t healthyWithinMs = 120'000;  // a candidate without its healthy marker by then is stopped
constexpr std::uint64_t soakMs = 60'000;            // from the healthy marker to the promotion
constexpr std::uint32_t maxCandidateStarts = 3;

enum RuntimeKind : std::uint32_t { kindCandidate = 0, kindActive = 1, kindPrevious = 2, kindSeed = 3 };

using SlotNames = std::set<std::string, std::less<>>;

struct LauncherModel {
  BootState state;
  SlotNames runnableSlots;                // complete and startable
  bool seedRunnable = false;              // the seed runtime exists
  bool candidateTrialAllowed = false;     // candidates may be taken in and tried in this run
  std::string nextNonce;                  // between starts: the nonce of the running attempt
  std::optional<std::string> selected;    // slot of the running attempt
  std::uint32_t selectedKind = kindSeed;  // a RuntimeKind
  std::uint64_t startTime = 0;            // monotonic ms of the child's start; 0 until the commit stamps it
  std::uint64_t markTime = 0;             // monotonic ms at which promotionMarkSeen was first set
  std::uint64_t firstDuration = healthyWithinMs;
  std::uint64_t secondDuration = soakMs;
  bool promotionMarkSeen = false;  // "healthy-v1" has been seen
  bool settledMarkSeen = false;    // "ready-v1" has been seen: an exit counts as a normal end
  bool timeoutQueued = false;      // EndRuntimeTree has been queued for this attempt
  SlotNames failedThisRun;
  std::vector<TransitionEffect> effects;  // output of the last step, in order

  bool operator==(const LauncherModel&) const = default;
};

}  // namespace launcher_stub
