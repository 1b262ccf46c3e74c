#include "step.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <variant>
#include <vector>

namespace launcher_stub::decision_space {

BootState stateInForce(const StartInput& input) {
  if (input.primary) return *input.primary;
  if (!input.backup) return {};
  BootState state = *input.backup;
  state.generation = std::max(state.generation, input.generationFloor.value_or(0));
  state.recovered = true;
  return state;
}

unsigned countOf(const Effects& effects, EffectKind kind) {
  unsigned count = 0;
  for (const TransitionEffect& effect : effects) count += effect.kind == kind ? 1U : 0U;
  return count;
}

bool has(const Effects& effects, EffectKind kind) { return countOf(effects, kind) != 0; }

bool isReport(const TransitionEffect& effect, const char* message) {
  const auto* text = std::get_if<std::string>(&effect.record);
  return effect.kind == EffectKind::ReportError && text != nullptr && *text == message;
}

namespace {

// The last two effects are this message and Exit 1.
bool endsWith(const Effects& effects, const char* message) {
  if (effects.size() < 2) return false;
  const TransitionEffect& last = effects.back();
  return isReport(effects[effects.size() - 2], message) && last.kind == EffectKind::Exit && last.number == 1;
}

}  // namespace

bool isOverflow(const LauncherModel& model) {
  return model.effects.size() == 2 && endsWith(model.effects, "generation overflow");
}

bool hasNoRuntime(const LauncherModel& model) { return endsWith(model.effects, "No runnable runtime"); }

bool isRejected(const BootState& state, const std::string& slot) {
  return std::find(state.rejected.begin(), state.rejected.end(), slot) != state.rejected.end();
}

std::vector<const BootState*> statesWritten(const Step& step) {
  std::vector<const BootState*> written = {step.inForce};
  for (const TransitionEffect& effect : step.after->effects) {
    if (effect.kind != EffectKind::WriteBootState) continue;
    if (const auto* state = std::get_if<BootState>(&effect.record)) written.push_back(state);
  }
  return written;
}

bool wasCandidate(const Step& step) {
  return step.before != nullptr && step.before->selected && step.before->selectedKind == kindCandidate;
}

// The child has ended in a way that counts as a failure, or was never started. A restart request counts as a good end
// as soon as its file is there, valid or not, save after a time-out.
bool isFailure(const Step& step) {
  if (step.before == nullptr || !step.before->selected) return false;
  if (step.spawn != nullptr) return !step.spawn->started;
  if (step.exit == nullptr) return false;
  if (step.exit->restartPresent && !step.before->timeoutQueued) return false;
  return wasCandidate(step) || !step.before->settledMarkSeen;
}

bool isGoodEnd(const Step& step) { return step.exit != nullptr && step.before->selected && !isFailure(step); }

bool startsHere(const Step& step) { return step.after->selected && has(step.after->effects, EffectKind::StartRuntime); }

bool isStartable(const LauncherModel& model, const std::string& slot) {
  const bool exists = slot == "seed" ? model.seedRunnable : model.runnableSlots.contains(slot);
  return exists && !model.failedThisRun.contains(slot);
}

bool isCountedStart(const BootState& before, const BootState& after) {
  BootState expected = before;
  ++expected.attemptCount;
  return before.candidate && before.attemptCount < maxCandidateStarts && after == expected;
}

unsigned startsLeft(const LauncherModel& model) {
  const BootState& state = model.state;
  unsigned left = 0;
  if (state.candidate && model.candidateTrialAllowed && isStartable(model, *state.candidate) &&
      !isRejected(state, *state.candidate) && state.attemptCount < maxCandidateStarts) {
    left += maxCandidateStarts - state.attemptCount;
  }
  SlotNames others = {"seed"};
  if (state.active) others.insert(*state.active);
  if (state.previous) others.insert(*state.previous);
  if (model.selected) others.erase(*model.selected);
  for (const std::string& slot : others) left += isStartable(model, slot) ? 1U : 0U;
  return left;
}

}  // namespace launcher_stub::decision_space
