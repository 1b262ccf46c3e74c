#include "state/decision.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "state/selection.h"

namespace launcher_stub {
namespace {

bool contains(const std::vector<std::string>& list, const std::string& name) {
  return std::find(list.begin(), list.end(), name) != list.end();
}

void setDurations(LauncherModel& model, const Durations& durations) {
  model.firstDuration = durations.first;
  model.secondDuration = durations.second;
}

// Decides which state this run goes on from. False: there was none, the model keeps the empty one.
bool adoptStoredState(LauncherModel& model, const StartInput& input) {
  if (input.primary) {
    model.state = *input.primary;
    return true;
  }
  if (input.backup) {
    model.state = *input.backup;
    // One above the copy, which as a rule is the number that was lost with the unreadable file. The floor is known only
    // of a file that is still JSON and has its generation as a string, which this launcher never writes.
    if (input.generationFloor) model.state.generation = std::max(model.state.generation, *input.generationFloor);
    model.state.recovered = true;
    (void)queueBumpingWrite(model);  // a failure means the last generation, which the caller tests next
    return true;
  }
  if (input.firstRun) (void)queueBumpingWrite(model);  // from generation 0: cannot fail
  return false;
}

RequestVerdict judgeRequest(const LauncherModel& model, const PendingRequest& request) {
  const BootState& state = model.state;
  if (request.expectedGeneration != state.generation) return RequestVerdict::staleGeneration;
  if (state.lastRequestId == request.requestId) return RequestVerdict::replayed;
  if (contains(state.rejected, request.candidate)) return RequestVerdict::rejectedSlot;
  return model.runnableSlots.contains(request.candidate) ? RequestVerdict::takenIn : RequestVerdict::slotNotRunnable;
}

// Takes the request in where it fits, and queues its removal either way. False: generation overflow.
bool considerRequest(LauncherModel& model, const PendingRequest& request, RequestVerdict& verdict) {
  verdict = judgeRequest(model, request);
  if (verdict == RequestVerdict::takenIn) {
    model.state.candidate = request.candidate;
    model.state.attemptCount = 0;
    model.state.lastRequestId = request.requestId;
    if (!queueBumpingWrite(model)) return false;
  }
  TransitionEffect clear;
  clear.kind = EffectKind::ClearPending;
  model.effects.push_back(std::move(clear));
  return true;
}

// A candidate whose starts were used up by an earlier run is rejected here; one that was only set aside because of
// its delivery is kept for the day on which the seed matches again.
bool candidateIsUsedUp(const LauncherModel& model, const StartInput& input) {
  const BootState& state = model.state;
  return model.candidateTrialAllowed && state.candidate && !input.exempt.contains(*state.candidate) &&
         state.attemptCount >= maxCandidateStarts;
}

bool timePassed(std::uint64_t now, std::uint64_t since, std::uint64_t duration) {
  return now >= since && now - since >= duration;
}

void promote(LauncherModel& model) {
  BootState& state = model.state;
  state.previous = state.active;
  state.active = model.selected;
  state.candidate.reset();
  state.attemptCount = 0;
  if (queueBumpingWrite(model, /*requireRunning=*/true)) model.selectedKind = kindActive;
}

void watchCandidate(LauncherModel& model, const TickInput& input) {
  if (!model.promotionMarkSeen) {
    if (timePassed(input.now, model.startTime, model.firstDuration)) {
      if (!model.timeoutQueued) {
        TransitionEffect end;
        end.kind = EffectKind::EndRuntimeTree;
        model.effects.push_back(std::move(end));
        model.timeoutQueued = true;
      }
      return;  // a marker that comes now is too late
    }
    if (input.promotionSeen) {
      model.promotionMarkSeen = true;
      model.markTime = input.now;
    }
  }
  if (model.promotionMarkSeen && timePassed(input.now, model.markTime, model.secondDuration)) promote(model);
}

}  // namespace

bool asksForRelaunch(const LauncherModel& model, const ExitInput& input) {
  if (!input.restartPresent || !input.restart) return false;
  const RestartRequest& request = *input.restart;
  if (request.slot != *model.selected || request.nonce != model.nextNonce) return false;
  return !request.requestId || request.requestId == model.state.lastRequestId ||
         request.requestId == input.extraRequestId;
}

LauncherModel decideStart(const StartInput& input, StartFindings& findings) {
  LauncherModel model;
  setDurations(model, input.durations);
  model.runnableSlots = input.runnableSlots;
  model.seedRunnable = input.seedRunnable;
  model.candidateTrialAllowed = input.candidateTrialAllowed;
  model.nextNonce = input.nextNonce;

  const bool stateWasStored = adoptStoredState(model, input);
  if (model.state.generation == std::numeric_limits<std::uint64_t>::max()) {
    queueGenerationOverflow(model);
    return model;
  }
  findings.candidateUsedUp = candidateIsUsedUp(model, input);
  if (findings.candidateUsedUp) {
    (void)rejectCandidate(model, std::string(*model.state.candidate));  // before the last generation: cannot fail
  }
  if (stateWasStored && model.candidateTrialAllowed) {
    findings.requestGeneration = model.state.generation;
    if (input.pending && !considerRequest(model, *input.pending, findings.request)) return model;
  }
  selectRuntime(model, input.now);
  return model;
}

LauncherModel decideTick(LauncherModel model, const TickInput& input) {
  model.effects.clear();
  setDurations(model, input.durations);
  if (!model.selected) return model;

  if (input.settledSeen) model.settledMarkSeen = true;
  if (model.selectedKind == kindCandidate) watchCandidate(model, input);
  return model;
}

LauncherModel decideSpawn(LauncherModel model, const SpawnInput& input) {
  model.effects.clear();
  setDurations(model, input.durations);
  if (!input.started) applyFailure(model, input.nextNonce, input.now);
  return model;
}

LauncherModel decideExit(LauncherModel model, const ExitInput& input) {
  model.effects.clear();
  setDurations(model, input.durations);
  if (!model.selected) return model;

  const bool relaunch = asksForRelaunch(model, input);  // before the failure rule stores a new nonce
  const bool restartCounts = input.restartPresent && !model.timeoutQueued;
  const bool isCandidate = model.selectedKind == kindCandidate;
  if (!restartCounts && (isCandidate || !model.settledMarkSeen)) {
    applyFailure(model, input.nextNonce, input.now);
    return model;
  }
  if (isCandidate) {  // a restart that the candidate asked for does not count as a start
    if (model.state.attemptCount > 0) --model.state.attemptCount;
    queueWrite(model);
  }

  model.selected.reset();
  TransitionEffect end;
  end.kind = relaunch ? EffectKind::RequestRelaunch : EffectKind::Exit;
  if (!relaunch) end.number = static_cast<std::int32_t>(input.exitCode);
  model.effects.push_back(std::move(end));
  return model;
}

}  // namespace launcher_stub
