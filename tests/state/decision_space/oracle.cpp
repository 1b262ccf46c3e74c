#include "oracle.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace launcher_stub::decision_space {
namespace {

constexpr std::uint64_t topGeneration = 18446744073709551615U;

using State = BootState;
using Model = LauncherModel;
using Effect = TransitionEffect;

std::wstring wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

void add(Model& model, EffectKind kind) { model.effects.emplace_back().kind = kind; }

void addReportAndExit(Model& model, const char* text) {
  add(model, EffectKind::ReportError);
  model.effects.back().record.emplace<std::string>(text);
  add(model, EffectKind::Exit);
  model.effects.back().number = 1;
}

void addOverflow(Model& model) {
  model.effects.clear();
  addReportAndExit(model, "generation overflow");
}

void addPlainWrite(Model& model) {
  add(model, EffectKind::WriteBootState);
  model.effects.back().record.emplace<State>(model.state);
}

bool addBumpingWrite(Model& model) {
  if (model.state.generation == topGeneration) {
    addOverflow(model);
    return false;
  }
  model.state.generation += 1;
  addPlainWrite(model);
  model.effects.back().savePrevious = true;
  return true;
}

bool listed(const State& state, const std::string& slot) {
  for (const std::string& entry : state.rejected) {
    if (entry == slot) return true;
  }
  return false;
}

bool failed(const Model& model, const std::string& slot) { return model.failedThisRun.count(slot) == 1; }

bool usable(const Model& model, const std::optional<std::string>& slot) {
  return slot.has_value() && model.runnableSlots.count(*slot) == 1 && !failed(model, *slot);
}

// Gives the kind of the first that will do, 4 for none, and its slot.
std::uint32_t firstThatWillDo(const Model& model, std::string& slot) {
  const State& state = model.state;
  if (model.candidateTrialAllowed && usable(model, state.candidate) && state.attemptCount < 3 &&
      !listed(state, *state.candidate)) {
    slot = *state.candidate;
    return 0;
  }
  if (usable(model, state.active)) {
    slot = *state.active;
    return 1;
  }
  if (usable(model, state.previous)) {
    slot = *state.previous;
    return 2;
  }
  slot = "seed";
  return model.seedRunnable && !failed(model, "seed") ? 3 : 4;
}

void select(Model& model, std::uint64_t time) {
  std::string slot;
  const std::uint32_t kind = firstThatWillDo(model, slot);
  if (kind == 4) {
    addReportAndExit(model, "No runnable runtime");
    return;
  }
  model.selected = slot;
  model.selectedKind = kind;
  model.startTime = 0;
  model.markTime = 0;
  model.promotionMarkSeen = false;
  model.timeoutQueued = false;
  if (kind == 0) {
    model.state.attemptCount += 1;
    addPlainWrite(model);
  }
  add(model, EffectKind::BeginAttempt);
  model.effects.back().record.emplace<AttemptRecord>(AttemptRecord{slot, model.nextNonce, time});
  model.effects.back().attemptName = wide(model.nextNonce);
  add(model, EffectKind::StartRuntime);
  model.effects.back().number = static_cast<std::int32_t>(kind);
  model.effects.back().slot = wide(slot);
}

bool reject(Model& model, const std::string& slot) {
  State& state = model.state;
  if (!listed(state, slot)) {
    state.rejected.push_back(slot);
    if (state.rejected.size() == 65) state.rejected = {state.rejected.begin() + 1, state.rejected.end()};
  }
  state.candidate = std::nullopt;
  state.attemptCount = 0;
  return addBumpingWrite(model);
}

void fail(Model& model, const std::string& nonce, std::uint64_t time) {
  if (!model.selected.has_value()) return;
  model.nextNonce = nonce;
  const std::string slot = *model.selected;
  if (model.selectedKind != 0) {
    model.failedThisRun.insert(slot);
  } else if (model.state.attemptCount >= 3) {
    model.failedThisRun.insert(slot);
    if (!reject(model, slot)) return;
  }
  model.selected = std::nullopt;
  select(model, time);
}

bool takesIn(const Model& model, const PendingRequest& request) {
  if (request.expectedGeneration != model.state.generation) return false;
  if (model.state.lastRequestId.has_value() && *model.state.lastRequestId == request.requestId) return false;
  if (listed(model.state, request.candidate)) return false;
  return model.runnableSlots.count(request.candidate) == 1;
}

bool honoured(const Model& model, const ExitInput& input) {
  if (!input.restartPresent || !input.restart.has_value()) return false;
  if (input.restart->slot != *model.selected) return false;
  if (input.restart->nonce != model.nextNonce) return false;
  if (!input.restart->requestId.has_value()) return true;
  const std::string& id = *input.restart->requestId;
  if (model.state.lastRequestId.has_value() && *model.state.lastRequestId == id) return true;
  return input.extraRequestId.has_value() && *input.extraRequestId == id;
}

Model begun(const Model& before, const Durations& durations) {
  Model model = before;
  model.effects.clear();
  model.firstDuration = durations.first;
  model.secondDuration = durations.second;
  return model;
}

// Where the state comes from. False: there was no state to go on from.
bool findState(Model& model, const StartInput& input) {
  if (input.primary.has_value()) {
    model.state = *input.primary;
    return true;
  }
  if (input.backup.has_value()) {
    model.state = *input.backup;
    if (input.generationFloor.has_value() && *input.generationFloor > model.state.generation) {
      model.state.generation = *input.generationFloor;
    }
    model.state.recovered = true;
    addBumpingWrite(model);
    return true;
  }
  if (input.firstRun) addBumpingWrite(model);
  return false;
}

bool trialIsOver(const Model& model, const StartInput& input) {
  return input.candidateTrialAllowed && model.state.candidate.has_value() &&
         input.exempt.count(*model.state.candidate) == 0 && model.state.attemptCount >= 3;
}

}  // namespace

LauncherModel expectedStart(const StartInput& input) {
  Model model = begun(Model(), input.durations);
  model.runnableSlots = input.runnableSlots;
  model.seedRunnable = input.seedRunnable;
  model.candidateTrialAllowed = input.candidateTrialAllowed;
  model.nextNonce = input.nextNonce;
  const bool found = findState(model, input);
  if (model.state.generation == topGeneration) {
    addOverflow(model);
    return model;
  }
  if (trialIsOver(model, input)) {
    const std::string slot = *model.state.candidate;
    if (!reject(model, slot)) return model;
  }
  if (found && input.candidateTrialAllowed && input.pending.has_value()) {
    if (takesIn(model, *input.pending)) {
      model.state.candidate = input.pending->candidate;
      model.state.attemptCount = 0;
      model.state.lastRequestId = input.pending->requestId;
      if (!addBumpingWrite(model)) return model;
    }
    add(model, EffectKind::ClearPending);
  }
  select(model, input.now);
  return model;
}

LauncherModel expectedTick(const LauncherModel& before, const TickInput& input) {
  Model model = begun(before, input.durations);
  if (!model.selected.has_value()) return model;
  if (input.settledSeen) model.settledMarkSeen = true;
  if (model.selectedKind != 0) return model;

  if (!model.promotionMarkSeen && input.now >= model.startTime && input.now - model.startTime >= model.firstDuration) {
    if (!model.timeoutQueued) add(model, EffectKind::EndRuntimeTree);
    model.timeoutQueued = true;
    return model;
  }
  if (!model.promotionMarkSeen && input.promotionSeen) {
    model.promotionMarkSeen = true;
    model.markTime = input.now;
  }
  if (!model.promotionMarkSeen || input.now < model.markTime) return model;
  if (input.now - model.markTime < model.secondDuration) return model;

  model.state.previous = model.state.active;
  model.state.active = model.selected;
  model.state.candidate = std::nullopt;
  model.state.attemptCount = 0;
  if (!addBumpingWrite(model)) return model;
  model.effects.back().requireRunning = true;
  model.selectedKind = 1;
  return model;
}

LauncherModel expectedSpawn(const LauncherModel& before, const SpawnInput& input) {
  Model model = begun(before, input.durations);
  if (!input.started) fail(model, input.nextNonce, input.now);
  return model;
}

LauncherModel expectedExit(const LauncherModel& before, const ExitInput& input) {
  Model model = begun(before, input.durations);
  if (!model.selected.has_value()) return model;
  const bool relaunch = honoured(model, input);
  if (model.selectedKind == 0) {
    if (!input.restartPresent || model.timeoutQueued) {
      fail(model, input.nextNonce, input.now);
      return model;
    }
    if (model.state.attemptCount != 0) model.state.attemptCount -= 1;
    addPlainWrite(model);
  } else if (!(input.restartPresent && !model.timeoutQueued) && !model.settledMarkSeen) {
    fail(model, input.nextNonce, input.now);
    return model;
  }
  model.selected = std::nullopt;
  add(model, relaunch ? EffectKind::RequestRelaunch : EffectKind::Exit);
  if (!relaunch) model.effects.back().number = static_cast<std::int32_t>(input.exitCode);
  return model;
}

}  // namespace launcher_stub::decision_space
