// What is started, and how a step leads on to a start, a message or an end.
#include "domain.h"
#include "rules.h"
#include "step.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace launcher_stub::decision_space {
namespace {

bool attemptIsFollowedByItsStart(const Step& step) {
  const LauncherModel& model = *step.after;
  const Effects& effects = model.effects;
  const unsigned begun = countOf(effects, EffectKind::BeginAttempt);
  if (begun != countOf(effects, EffectKind::StartRuntime) || begun > 1) return false;
  if (begun == 0) return true;
  if (effects.size() < 2 || effects.back().kind != EffectKind::StartRuntime || !model.selected) return false;
  const TransitionEffect& begin = effects[effects.size() - 2];
  const TransitionEffect& start = effects.back();
  const auto* record = std::get_if<AttemptRecord>(&begin.record);
  const std::wstring slot(model.selected->begin(), model.selected->end());
  const std::wstring nonce(model.nextNonce.begin(), model.nextNonce.end());
  return begin.kind == EffectKind::BeginAttempt && record != nullptr && record->slot == *model.selected &&
         record->nonce == model.nextNonce && begin.attemptName == nonce && start.slot == slot &&
         start.number == static_cast<std::int32_t>(model.selectedKind);
}

bool attemptHasTheTimeOfItsInput(const Step& step) {
  for (const TransitionEffect& effect : step.after->effects) {
    const auto* record = std::get_if<AttemptRecord>(&effect.record);
    if (record == nullptr) continue;
    const std::uint64_t now = step.start != nullptr   ? step.start->now
                              : step.spawn != nullptr ? step.spawn->now
                              : step.exit != nullptr  ? step.exit->now
                                                      : lastGeneration;
    if (record->startedAt != now) return false;
  }
  return true;
}

bool startRelaunchAndExitExcludeEachOther(const Step& step) {
  const Effects& effects = step.after->effects;
  return countOf(effects, EffectKind::StartRuntime) + countOf(effects, EffectKind::Exit) +
             countOf(effects, EffectKind::RequestRelaunch) <=
         1;
}

// A start input and a failure always lead on: to a start, or to one of the two messages.
bool startsAndFailuresLeadOn(const Step& step) {
  if (step.start == nullptr && !isFailure(step)) return true;
  const LauncherModel& after = *step.after;
  const int outcomes = (has(after.effects, EffectKind::StartRuntime) ? 1 : 0) + (isOverflow(after) ? 1 : 0) +
                       (hasNoRuntime(after) ? 1 : 0);
  return outcomes == 1;
}

bool messagesComeFromNothingElse(const Step& step) {
  const LauncherModel& after = *step.after;
  const unsigned reports = countOf(after.effects, EffectKind::ReportError);
  if (reports != (isOverflow(after) || hasNoRuntime(after) ? 1U : 0U)) return false;
  return !hasNoRuntime(after) || step.start != nullptr || isFailure(step);
}

bool chosenSlotCanRun(const Step& step) { return !startsHere(step) || isStartable(*step.after, *step.after->selected); }

// Whether the place of this kind, 0 to 3, could have been chosen. The count is that before the start was counted.
bool wouldDo(const LauncherModel& model, std::uint32_t kind, std::uint32_t attemptCount) {
  const std::optional<std::string> places[] = {model.state.candidate, model.state.active, model.state.previous, "seed"};
  const std::optional<std::string>& slot = places[kind];
  if (!slot || !isStartable(model, *slot)) return false;
  if (kind != kindCandidate) return true;
  return model.candidateTrialAllowed && attemptCount < maxCandidateStarts && !isRejected(model.state, *slot);
}

// Candidate, active, previous, seed: the first that will do, and it is the slot of that place. None only when none
// will do.
bool choiceIsTheFirstThatWillDo(const Step& step) {
  const LauncherModel& model = *step.after;
  if (!startsHere(step) && !hasNoRuntime(model)) return true;
  std::uint32_t attemptCount = model.state.attemptCount;
  if (startsHere(step) && model.selectedKind == kindCandidate) --attemptCount;
  std::uint32_t first = 0;
  while (first <= kindSeed && !wouldDo(model, first, attemptCount)) ++first;
  if (hasNoRuntime(model)) return first > kindSeed;
  const std::optional<std::string> places[] = {model.state.candidate, model.state.active, model.state.previous, "seed"};
  return first == model.selectedKind && model.selected == places[first];
}

bool rejectedSlotIsNoCandidate(const Step& step) {
  if (!startsHere(step) || step.after->selectedKind != kindCandidate) return true;
  return !isRejected(step.after->state, *step.after->selected);
}

// The count is on the disk before the candidate runs: its write is the last one and comes before the attempt.
bool candidateStartIsCountedBeforeIt(const Step& step) {
  if (!startsHere(step) || step.after->selectedKind != kindCandidate) return true;
  const Effects& effects = step.after->effects;
  const std::vector<const BootState*> written = statesWritten(step);
  if (written.size() < 2 || effects.size() < 3) return false;
  return isCountedStart(*written[written.size() - 2], *written.back()) &&
         effects[effects.size() - 3].kind == EffectKind::WriteBootState && !effects[effects.size() - 3].savePrevious;
}

bool otherStartsAreNotCounted(const Step& step) {
  if (!startsHere(step) || step.after->selectedKind == kindCandidate) return true;
  return step.after->state.attemptCount == step.inForce->attemptCount || step.after->state.attemptCount == 0;
}

bool choosingClearsTheMarks(const Step& step) {
  const LauncherModel& after = *step.after;
  if (!startsHere(step)) return true;
  return after.startTime == 0 && after.markTime == 0 && !after.promotionMarkSeen && !after.timeoutQueued;
}

// The settled mark belongs to the run: it outlives the attempt, also when the next slot is started after a failure.
bool settledMarkIsKept(const Step& step) {
  const bool before = step.before != nullptr && step.before->settledMarkSeen;
  const bool seenNow = step.tick != nullptr && step.tick->settledSeen && step.before->selected;
  return step.after->settledMarkSeen == (before || seenNow);
}

const Rule rules[] = {
    {"an attempt is followed by its start", attemptIsFollowedByItsStart},
    {"an attempt has the time of its input", attemptHasTheTimeOfItsInput},
    {"start, relaunch and exit exclude each other", startRelaunchAndExitExcludeEachOther},
    {"starts and failures lead on", startsAndFailuresLeadOn},
    {"messages come from nothing else", messagesComeFromNothingElse},
    {"the chosen slot can run", chosenSlotCanRun},
    {"the choice is the first that will do", choiceIsTheFirstThatWillDo},
    {"a rejected slot is no candidate", rejectedSlotIsNoCandidate},
    {"a candidate's start is counted before it", candidateStartIsCountedBeforeIt},
    {"other starts are not counted", otherStartsAreNotCounted},
    {"choosing clears the marks", choosingClearsTheMarks},
    {"the settled mark is kept", settledMarkIsKept},
};

}  // namespace

std::span<const Rule> rulesOfStarts() { return rules; }

}  // namespace launcher_stub::decision_space
