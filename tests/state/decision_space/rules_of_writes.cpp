// The generation, the states that are written, and the requests that are taken into them.
#include "domain.h"
#include "rules.h"
#include "step.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

namespace launcher_stub::decision_space {
namespace {

bool generationNeverFalls(const Step& step) { return step.after->state.generation >= step.inForce->generation; }

// One more for every write that keeps the previous copy, none for any other. An overflow has discarded its writes.
bool generationRisesByItsWrites(const Step& step) {
  if (isOverflow(*step.after)) return step.after->state.generation == lastGeneration;
  std::uint64_t generation = step.inForce->generation;
  for (const TransitionEffect& effect : step.after->effects) {
    if (effect.kind != EffectKind::WriteBootState) continue;
    if (effect.savePrevious) ++generation;
    const auto* state = std::get_if<BootState>(&effect.record);
    if (state == nullptr || state->generation != generation) return false;
  }
  return step.after->state.generation == generation;
}

bool overflowHoldsNothingElse(const Step& step) {
  for (const TransitionEffect& effect : step.after->effects) {
    if (isReport(effect, "generation overflow")) return isOverflow(*step.after);
  }
  return true;
}

// A step bumps at most three times: recovery, rejection, taking in. So it must be that near to the end.
bool overflowOnlyAtTheEnd(const Step& step) {
  return !isOverflow(*step.after) || step.inForce->generation >= lastGeneration - 2;
}

// A start from the last generation stops at once. Within a run the last generation may be reached and used.
bool lastGenerationIsNotStartedFrom(const Step& step) {
  if (step.start == nullptr || step.inForce->generation != lastGeneration) return true;
  return isOverflow(*step.after);
}

bool isFirstState(const BootState& before, const BootState& after) {
  BootState expected;
  expected.generation = 1;
  return before == BootState() && after == expected;
}

bool isBumpedOnly(const BootState& before, const BootState& after) {
  BootState expected = before;
  ++expected.generation;
  return before.recovered && after == expected;
}

bool isRejection(const BootState& before, const BootState& after) {
  if (!before.candidate) return false;
  BootState expected = before;
  ++expected.generation;
  expected.attemptCount = 0;
  expected.candidate.reset();
  if (!isRejected(before, *before.candidate)) expected.rejected.push_back(*before.candidate);
  if (expected.rejected.size() == maxRejectedSlots + 1) expected.rejected.erase(expected.rejected.begin());
  return after == expected;
}

bool isTakingIn(const BootState& before, const BootState& after, const std::optional<PendingRequest>& request) {
  if (!request) return false;
  BootState expected = before;
  ++expected.generation;
  expected.attemptCount = 0;
  expected.candidate = request->candidate;
  expected.lastRequestId = request->requestId;
  return after == expected;
}

bool isPromotion(const BootState& before, const BootState& after, const std::optional<std::string>& slot) {
  BootState expected = before;
  ++expected.generation;
  expected.attemptCount = 0;
  expected.previous = before.active;
  expected.active = slot;
  expected.candidate.reset();
  return slot && after == expected;
}

bool isUncountedStart(const BootState& before, const BootState& after) {
  BootState expected = before;
  if (expected.attemptCount != 0) --expected.attemptCount;
  return after == expected;
}

// Each input has its own kinds of change: a write never mixes two of them, and never changes anything else.
bool isKnownChange(const Step& step, const BootState& before, const BootState& after) {
  if (step.tick != nullptr) return isPromotion(before, after, step.before->selected);
  if (isGoodEnd(step)) return wasCandidate(step) && isUncountedStart(before, after);
  if (isRejection(before, after) || isCountedStart(before, after)) return true;
  if (step.start == nullptr) return false;
  const bool isFirst = &before == step.inForce;
  return isTakingIn(before, after, step.start->pending) ||
         (isFirst && step.start->firstRun && isFirstState(before, after)) ||
         (isFirst && step.start->backup && isBumpedOnly(before, after));
}

bool everyWriteIsOneKnownChange(const Step& step) {
  const std::vector<const BootState*> written = statesWritten(step);
  for (std::size_t at = 1; at < written.size(); ++at) {
    if (!isKnownChange(step, *written[at - 1], *written[at])) return false;
  }
  return true;
}

// The last write holds the final state; without a write the state is as it was. The exception: at an overflow the
// model keeps what was to be written, and the run ends.
bool stateChangesOnlyByWriting(const Step& step) {
  return isOverflow(*step.after) || *statesWritten(step).back() == step.after->state;
}

bool onlyPromotionsNeedTheRuntime(const Step& step) {
  for (const TransitionEffect& effect : step.after->effects) {
    const bool isWrite = effect.kind == EffectKind::WriteBootState;
    if (effect.requireRunning != (isWrite && step.tick != nullptr)) return false;
  }
  return true;
}

bool rejectedListStaysShortAndDistinct(const Step& step) {
  const auto isDistinct = [](const std::vector<std::string>& list) {
    return std::set<std::string>(list.begin(), list.end()).size() == list.size();
  };
  const std::vector<std::string>& after = step.after->state.rejected;
  if (after == step.inForce->rejected) return true;
  return after.size() <= maxRejectedSlots && (!isDistinct(step.inForce->rejected) || isDistinct(after));
}

// Cleared by a promotion or a rejection. (Clearing and taking in the next one in one step count it anew.)
bool clearedCandidateHasNoStarts(const Step& step) {
  return !step.inForce->candidate || step.after->state.candidate || step.after->state.attemptCount == 0;
}

// With files that exist and hold no valid state, nothing is written: they stay for whoever can mend them.
bool unreadableStatesAreLeftAlone(const Step& step) {
  if (step.start == nullptr || step.start->primary || step.start->backup || step.start->firstRun) return true;
  const LauncherModel& after = *step.after;
  return !has(after.effects, EffectKind::WriteBootState) && !has(after.effects, EffectKind::ClearPending) &&
         after.state == BootState() && (!after.selected || after.selected == "seed");
}

// Looked at: removed once, whether it fits or not. In all other cases it stays where it is.
bool consideredRequestIsRemovedOnce(const Step& step) {
  const bool isConsidered = step.start != nullptr && (step.start->primary || step.start->backup) &&
                            step.start->candidateTrialAllowed && step.start->pending && !isOverflow(*step.after);
  return countOf(step.after->effects, EffectKind::ClearPending) == (isConsidered ? 1U : 0U);
}

bool fits(const PendingRequest& request, const BootState& state, const SlotNames& runnable) {
  return request.expectedGeneration == state.generation && state.lastRequestId != request.requestId &&
         !isRejected(state, request.candidate) && runnable.contains(request.candidate);
}

// Taken in exactly when it fits the state that was in force right then, after a recovery and a rejection. Before the
// request's removal stand the recovery's write, the rejection's (without a candidate), and the taking in, each if it
// came about.
bool requestIsTakenInWhenItFits(const Step& step) {
  if (!has(step.after->effects, EffectKind::ClearPending)) return true;
  const PendingRequest& request = *step.start->pending;
  const BootState* before = step.inForce;
  bool recoveryIsToCome = !step.start->primary;
  bool wasTakenIn = false;
  for (const TransitionEffect& effect : step.after->effects) {
    if (effect.kind == EffectKind::ClearPending) break;
    const auto* state = std::get_if<BootState>(&effect.record);
    if (state == nullptr || wasTakenIn) return false;
    wasTakenIn = !recoveryIsToCome && state->candidate;
    recoveryIsToCome = false;
    if (wasTakenIn && !isTakingIn(*before, *state, request)) return false;
    if (!wasTakenIn) before = state;
  }
  return wasTakenIn == fits(request, *before, step.start->runnableSlots);
}

const Rule rules[] = {
    {"the generation never falls", generationNeverFalls},
    {"the generation rises by its writes", generationRisesByItsWrites},
    {"an overflow holds nothing else", overflowHoldsNothingElse},
    {"an overflow comes only at the end", overflowOnlyAtTheEnd},
    {"the last generation is not started from", lastGenerationIsNotStartedFrom},
    {"every write is one known change", everyWriteIsOneKnownChange},
    {"the state changes only by writing", stateChangesOnlyByWriting},
    {"only promotions need the runtime", onlyPromotionsNeedTheRuntime},
    {"the rejected list stays short and distinct", rejectedListStaysShortAndDistinct},
    {"a cleared candidate has no starts", clearedCandidateHasNoStarts},
    {"unreadable states are left alone", unreadableStatesAreLeftAlone},
    {"a considered request is removed once", consideredRequestIsRemovedOnce},
    {"a request is taken in when it fits", requestIsTakenInWhenItFits},
};

}  // namespace

std::span<const Rule> rulesOfWrites() { return rules; }

}  // namespace launcher_stub::decision_space
