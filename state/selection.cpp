#include "state/selection.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "state/messages.h"
#include "state/names.h"

namespace launcher_stub {
namespace {

constexpr std::uint64_t lastGeneration = std::numeric_limits<std::uint64_t>::max();

void queueMessageAndExit(LauncherModel& model, std::string_view message) {
  TransitionEffect report;
  report.kind = EffectKind::ReportError;
  report.record = std::string(message);
  model.effects.push_back(std::move(report));

  TransitionEffect exit;
  exit.kind = EffectKind::Exit;
  exit.number = 1;
  model.effects.push_back(std::move(exit));
}

void queueStart(LauncherModel& model, std::uint64_t now) {
  TransitionEffect begin;
  begin.kind = EffectKind::BeginAttempt;
  begin.record = AttemptRecord{*model.selected, model.nextNonce, now};
  begin.attemptName.assign(model.nextNonce.begin(), model.nextNonce.end());  // a token: plain ASCII
  model.effects.push_back(std::move(begin));

  TransitionEffect start;
  start.kind = EffectKind::StartRuntime;
  start.number = static_cast<std::int32_t>(model.selectedKind);
  start.slot.assign(model.selected->begin(), model.selected->end());
  model.effects.push_back(std::move(start));
}

bool isRejected(const BootState& state, const std::string& slot) {
  return std::find(state.rejected.begin(), state.rejected.end(), slot) != state.rejected.end();
}

void choose(LauncherModel& model, const std::string& slot, RuntimeKind kind, std::uint64_t now) {
  model.selected = slot;
  model.selectedKind = kind;
  model.startTime = 0;
  model.markTime = 0;
  model.promotionMarkSeen = false;
  model.timeoutQueued = false;
  if (kind == kindCandidate) {
    ++model.state.attemptCount;  // durable before the start, so that no way of dying makes a start uncounted
    queueWrite(model);
  }
  queueStart(model, now);
}

}  // namespace

bool canStart(const LauncherModel& model, const std::optional<std::string>& slot) {
  return slot && model.runnableSlots.contains(*slot) && !model.failedThisRun.contains(*slot);
}

CandidateVerdict judgeCandidate(const LauncherModel& model) {
  const BootState& state = model.state;
  if (!model.candidateTrialAllowed) return CandidateVerdict::trialsOff;
  if (!canStart(model, state.candidate)) return CandidateVerdict::cannotStart;
  if (state.attemptCount >= maxCandidateStarts) return CandidateVerdict::startsUsedUp;
  return isRejected(state, *state.candidate) ? CandidateVerdict::rejected : CandidateVerdict::canTry;
}

void queueWrite(LauncherModel& model) {
  TransitionEffect write;
  write.kind = EffectKind::WriteBootState;
  write.record = model.state;
  model.effects.push_back(std::move(write));
}

bool queueBumpingWrite(LauncherModel& model, bool requireRunning) {
  if (model.state.generation == lastGeneration) {
    queueGenerationOverflow(model);
    return false;
  }
  ++model.state.generation;
  queueWrite(model);
  model.effects.back().savePrevious = true;
  model.effects.back().requireRunning = requireRunning;
  return true;
}

void queueGenerationOverflow(LauncherModel& model) {
  model.effects.clear();
  queueMessageAndExit(model, messages::generationOverflow);
}

bool rejectCandidate(LauncherModel& model, const std::string& slot) {
  BootState& state = model.state;
  if (!isRejected(state, slot)) state.rejected.push_back(slot);
  if (state.rejected.size() > maxRejectedSlots) state.rejected.erase(state.rejected.begin());
  state.candidate.reset();
  state.attemptCount = 0;
  return queueBumpingWrite(model);
}

void selectRuntime(LauncherModel& model, std::uint64_t now) {
  // Copies: choosing assigns to the model that these names live in.
  const BootState state = model.state;
  if (judgeCandidate(model) == CandidateVerdict::canTry) {
    choose(model, *state.candidate, kindCandidate, now);
  } else if (canStart(model, state.active)) {
    choose(model, *state.active, kindActive, now);
  } else if (canStart(model, state.previous)) {
    choose(model, *state.previous, kindPrevious, now);
  } else if (model.seedRunnable && !model.failedThisRun.contains(seedSlotName)) {
    choose(model, std::string(seedSlotName), kindSeed, now);
  } else {
    queueMessageAndExit(model, messages::noRunnableRuntime);
  }
}

void applyFailure(LauncherModel& model, const std::string& nextNonce, std::uint64_t now) {
  if (!model.selected) return;
  model.nextNonce = nextNonce;

  const std::string failed = *model.selected;
  const bool isCandidate = model.selectedKind == kindCandidate;
  const bool startsUsedUp = model.state.attemptCount >= maxCandidateStarts;
  if (!isCandidate || startsUsedUp) model.failedThisRun.insert(failed);
  if (isCandidate && startsUsedUp && !rejectCandidate(model, failed)) return;

  model.selected.reset();
  selectRuntime(model, now);
}

}  // namespace launcher_stub
