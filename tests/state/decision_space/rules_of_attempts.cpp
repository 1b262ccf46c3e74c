// The running attempt: its ticks, its failures, its end.
#include "domain.h"
#include "rules.h"
#include "step.h"

#include <cstdint>
#include <string>
#include <vector>

namespace launcher_stub::decision_space {
namespace {

bool ticksLeaveTheAttemptAlone(const Step& step) {
  if (step.tick == nullptr) return true;
  const Effects& effects = step.after->effects;
  return step.after->selected == step.before->selected && step.after->startTime == step.before->startTime &&
         !has(effects, EffectKind::StartRuntime) && !has(effects, EffectKind::RequestRelaunch) && effects.size() <= 2;
}

bool isOld(std::uint64_t now, std::uint64_t since, std::uint64_t duration) {
  return now >= since && now - since >= duration;
}

// A candidate that has soaked since its mark, exactly: the full time since a mark seen in an earlier tick.
bool promotionNeedsMarkAndSoak(const Step& step) {
  const bool isDue = step.tick != nullptr && wasCandidate(step) && step.before->promotionMarkSeen &&
                     isOld(step.tick->now, step.before->markTime, step.before->secondDuration);
  const bool wasTried =
      step.tick != nullptr && !step.after->effects.empty() && !has(step.after->effects, EffectKind::EndRuntimeTree);
  return isDue == wasTried;
}

bool promotedIsActiveFromThenOn(const Step& step) {
  if (step.tick == nullptr) return true;
  const bool wasPromoted = has(step.after->effects, EffectKind::WriteBootState);
  if (!wasPromoted) return step.after->selectedKind == step.before->selectedKind;
  return step.after->selectedKind == kindActive && step.after->state.active == step.before->selected;
}

// Only a candidate, only without a mark, only when its time is up, and once.
bool timeoutStopsASilentCandidateOnce(const Step& step) {
  const bool isUp = step.tick != nullptr && wasCandidate(step) && !step.before->promotionMarkSeen &&
                    !step.before->timeoutQueued &&
                    isOld(step.tick->now, step.before->startTime, step.before->firstDuration);
  const bool isStopped = has(step.after->effects, EffectKind::EndRuntimeTree);
  if (isStopped != isUp) return false;
  return !isStopped || (step.after->effects.size() == 1 && step.after->timeoutQueued);
}

// A mark that comes after the time-out is too late, and a mark once seen keeps its time.
bool markIsTakenOnce(const Step& step) {
  if (step.tick == nullptr) return true;
  const LauncherModel& before = *step.before;
  const LauncherModel& after = *step.after;
  if (before.promotionMarkSeen) return after.promotionMarkSeen && after.markTime == before.markTime;
  const bool isInTime =
      wasCandidate(step) && step.tick->promotionSeen && !isOld(step.tick->now, before.startTime, before.firstDuration);
  return after.promotionMarkSeen == isInTime && (!isInTime || after.markTime == step.tick->now);
}

bool timeoutIsRemembered(const Step& step) {
  return step.tick == nullptr || !step.before->timeoutQueued || step.after->timeoutQueued;
}

// Failures and ends.

// A candidate may fail twice without being given up on; any other slot is not tried again in this run.
bool failureIsRemembered(const Step& step) {
  if (step.before == nullptr) return step.after->failedThisRun.empty();
  SlotNames expected = step.before->failedThisRun;
  const bool mayTryAgain = wasCandidate(step) && step.inForce->attemptCount < maxCandidateStarts;
  if (isFailure(step) && !mayTryAgain) expected.insert(*step.before->selected);
  return step.after->failedThisRun == expected;
}

// After a failure, or at the start of a later run: unless no trial is allowed there, or the candidate has only been set
// aside because of its delivery. An overflow hides it.
bool usedUpCandidateIsRejected(const Step& step) {
  const bool isUsedUp = step.inForce->candidate && step.inForce->attemptCount >= maxCandidateStarts;
  bool isDue = isUsedUp && isFailure(step) && wasCandidate(step);
  if (step.start != nullptr && isUsedUp) {
    isDue = step.start->candidateTrialAllowed && !step.start->exempt.contains(*step.inForce->candidate);
  }
  if (step.tick != nullptr || isOverflow(*step.after)) return true;
  bool wasRejected = false;
  for (const BootState* state : statesWritten(step)) {
    const bool isOnTheList = step.inForce->candidate && isRejected(*state, *step.inForce->candidate);
    wasRejected = wasRejected || (step.inForce->candidate && !state->candidate && isOnTheList);
  }
  return wasRejected == isDue;
}

// What bounds a run: every failure leaves fewer starts that may still come, and nothing gives one back but the end of
// the run.
bool everyFailureLeavesFewerStarts(const Step& step) {
  if (step.before == nullptr || !step.after->selected || isOverflow(*step.after)) return true;
  const unsigned before = startsLeft(*step.before);
  const unsigned after = startsLeft(*step.after);
  return isFailure(step) ? after < before : after <= before;
}

// A restart that a candidate asks for does not count as a start, whether or not the request is valid: asking is enough.
bool askedForRestartIsNotCounted(const Step& step) {
  if (!isGoodEnd(step) || !wasCandidate(step)) return true;
  const std::uint32_t before = step.inForce->attemptCount;
  const Effects& effects = step.after->effects;
  return step.after->state.attemptCount == (before != 0 ? before - 1 : 0) && effects.size() == 2 &&
         effects.front().kind == EffectKind::WriteBootState && !effects.front().savePrevious;
}

bool isHonoured(const Step& step) {
  const ExitInput& input = *step.exit;
  if (!input.restartPresent || !input.restart) return false;
  const RestartRequest& request = *input.restart;
  const bool idFits = !request.requestId || request.requestId == step.inForce->lastRequestId ||
                      request.requestId == input.extraRequestId;
  return request.slot == *step.before->selected && request.nonce == step.before->nextNonce && idFits;
}

// A request that is there and not valid, or not readable, only makes the end a good one: the child's code goes out.
bool goodEndExitsOrRelaunches(const Step& step) {
  const Effects& effects = step.after->effects;
  if (!isGoodEnd(step)) return !has(effects, EffectKind::RequestRelaunch);
  if (step.after->selected || effects.empty()) return false;
  const TransitionEffect& end = effects.back();
  if (isHonoured(step)) return end.kind == EffectKind::RequestRelaunch;
  return end.kind == EffectKind::Exit && end.number == static_cast<std::int32_t>(step.exit->exitCode);
}

// What belongs to the run, not to the step.

bool foundSlotsAreKept(const Step& step) {
  const LauncherModel& after = *step.after;
  if (step.start != nullptr) {
    return after.runnableSlots == step.start->runnableSlots && after.seedRunnable == step.start->seedRunnable &&
           after.candidateTrialAllowed == step.start->candidateTrialAllowed;
  }
  return after.runnableSlots == step.before->runnableSlots && after.seedRunnable == step.before->seedRunnable &&
         after.candidateTrialAllowed == step.before->candidateTrialAllowed;
}

// Between starts it is the running attempt's; only a failure brings the next one.
bool nonceChangesWithFailuresOnly(const Step& step) {
  if (step.start != nullptr) return step.after->nextNonce == step.start->nextNonce;
  if (!isFailure(step)) return step.after->nextNonce == step.before->nextNonce;
  return step.after->nextNonce == (step.spawn != nullptr ? step.spawn->nextNonce : step.exit->nextNonce);
}

bool nothingHappensWithoutAnAttempt(const Step& step) {
  if (step.before == nullptr || step.before->selected) return true;
  LauncherModel expected = *step.before;
  expected.effects.clear();
  return *step.after == expected;
}

bool successfulStartChangesNothing(const Step& step) {
  if (step.spawn == nullptr || !step.spawn->started) return true;
  LauncherModel expected = *step.before;
  expected.effects.clear();
  return *step.after == expected;
}

const Rule rules[] = {
    {"ticks leave the attempt alone", ticksLeaveTheAttemptAlone},
    {"a promotion needs mark and soak", promotionNeedsMarkAndSoak},
    {"what is promoted is active from then on", promotedIsActiveFromThenOn},
    {"a time-out stops a silent candidate once", timeoutStopsASilentCandidateOnce},
    {"the mark is taken once", markIsTakenOnce},
    {"a time-out is remembered", timeoutIsRemembered},
    {"a failure is remembered", failureIsRemembered},
    {"a used-up candidate is rejected", usedUpCandidateIsRejected},
    {"every failure leaves fewer starts", everyFailureLeavesFewerStarts},
    {"a restart that was asked for is not counted", askedForRestartIsNotCounted},
    {"a good end exits or relaunches", goodEndExitsOrRelaunches},
    {"what was found is kept", foundSlotsAreKept},
    {"the nonce changes with failures only", nonceChangesWithFailuresOnly},
    {"nothing happens without an attempt", nothingHappensWithoutAnAttempt},
    {"a successful start changes nothing", successfulStartChangesNothing},
};

}  // namespace

std::span<const Rule> rulesOfAttempts() { return rules; }

}  // namespace launcher_stub::decision_space
