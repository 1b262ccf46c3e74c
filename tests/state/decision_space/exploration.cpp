#include "exploration.h"

#include <algorithm>
#include <optional>
#include <variant>

#include "inputs.h"
#include "oracle.h"
#include "rules.h"
#include "tests/state/decision_support.h"

namespace launcher_stub::decision_space {
namespace {

// What a start finds after the launcher has ended here, in whatever way.
Point storedPart(const Point& point) {
  Point part;
  part.active = point.active;
  part.previous = point.previous;
  part.candidate = point.candidate;
  part.attemptCount = point.attemptCount;
  part.topGeneration = point.topGeneration;
  part.requestKnown = point.requestKnown;
  part.rejected = point.rejected;
  return part;
}

std::string describe(const StartInput& input) {
  std::string all = " exempt " + decision_support::textOfNames(input.exempt) + (input.firstRun ? " first run" : "");
  if (input.backup) all += "\n  backup " + decision_support::text(*input.backup);
  if (input.generationFloor) all += "\n  floor " + std::to_string(*input.generationFloor);
  if (input.pending) {
    all += "\n  request " + input.pending->requestId + " for " + input.pending->candidate + " at " +
           std::to_string(input.pending->expectedGeneration);
  }
  return all;
}

std::string describeInput(const Step& step) {
  if (step.start != nullptr) return "\nstart" + describe(*step.start);
  if (step.tick != nullptr) {
    return "\ntick at " + std::to_string(step.tick->now) + (step.tick->settledSeen ? " ready" : "") +
           (step.tick->promotionSeen ? " healthy" : "");
  }
  if (step.spawn != nullptr) return step.spawn->started ? "\nstarted" : "\nstart failed";
  const ExitInput& input = *step.exit;
  std::string all = "\nexit " + std::to_string(input.exitCode) + (input.restartPresent ? " restart present" : "");
  if (input.restart) {
    all += " for " + input.restart->slot + " " + input.restart->nonce + " " +
           decision_support::text(input.restart->requestId);
  }
  return all + " extra " + decision_support::text(input.extraRequestId);
}

}  // namespace

void Exploration::run() {
  forEachStart([this](const StartInput& input) { return takeStart(input); });
  while (!waiting_.empty() && failure_.empty()) {
    const Point point = unpacked(waiting_.back());
    waiting_.pop_back();
    expand(point);
  }
}

std::size_t Exploration::openEnds() const {
  std::size_t open = 0;
  for (const std::uint64_t state : stored_) open += begunWith_.contains(state) ? 0U : 1U;
  return open;
}

bool Exploration::takeStart(const StartInput& input) {
  ++counts_.starts;
  const BootState inForce = stateInForce(input);
  const LauncherModel after = decideStart(input);
  LauncherModel found;
  found.state = inForce;
  found.nextNonce = runningNonce;
  if (const auto point = pointOf(found)) begunWith_.insert(packed(canonical(storedPart(*point))));
  check({.inForce = &inForce, .after = &after, .start = &input}, expectedStart(input), decideStart(input));
  if (after.selected) counts_.mostStartsLeft = std::max(counts_.mostStartsLeft, startsLeft(after) + 1);
  return failure_.empty();
}

void Exploration::expand(const Point& point) {
  const LauncherModel before = modelAt(point);
  const BootState* inForce = &before.state;
  for (const SpawnInput& input : spawnInputs(point)) {
    ++counts_.spawns;
    const LauncherModel after = decideSpawn(before, input);
    check({.inForce = inForce, .before = &before, .after = &after, .spawn = &input}, expectedSpawn(before, input),
          decideSpawn(before, input));
    if (input.started) addStarted(after);
  }
  for (const TickInput& input : tickInputs(point)) {
    ++counts_.ticks;
    const LauncherModel after = decideTick(before, input);
    check({.inForce = inForce, .before = &before, .after = &after, .tick = &input}, expectedTick(before, input),
          decideTick(before, input));
  }
  for (const ExitInput& input : exitInputs(point)) {
    ++counts_.exits;
    const LauncherModel after = decideExit(before, input);
    check({.inForce = inForce, .before = &before, .after = &after, .exit = &input}, expectedExit(before, input),
          decideExit(before, input));
  }
}

// The child has been created: the commit stamps its start.
void Exploration::addStarted(LauncherModel model) {
  if (!model.selected) return;
  model.startTime = childStartMs;
  add(model);
}

void Exploration::check(const Step& step, const LauncherModel& expected, const LauncherModel& again) {
  const LauncherModel& after = *step.after;
  if (const char* rule = brokenRule(step)) fail(step, std::string("this does not hold: ") + rule);
  if (after != expected) fail(step, "the second implementation gives" + decision_support::text(expected));
  if (after != again) fail(step, "taken again the step gives" + decision_support::text(again));
  count(step);
  add(after);
}

void Exploration::count(const Step& step) {
  for (const TransitionEffect& effect : step.after->effects) {
    if (effect.kind == EffectKind::StartRuntime && effect.number == 0) ++counts_.candidateStarts;
    if (effect.kind == EffectKind::StartRuntime && effect.number == 3) ++counts_.seedStarts;
    if (effect.kind == EffectKind::EndRuntimeTree) ++counts_.timeouts;
    if (effect.kind == EffectKind::RequestRelaunch) ++counts_.relaunches;
    if (effect.requireRunning) ++counts_.promotions;
    if (const auto* message = std::get_if<std::string>(&effect.record)) {
      ++(*message == "generation overflow" ? counts_.overflows : counts_.noRuntime);
    }
  }
  if (step.start != nullptr && step.start->pending && step.after->state.candidate &&
      step.after->state.lastRequestId == step.start->pending->requestId &&
      step.inForce->lastRequestId != step.after->state.lastRequestId) {
    ++counts_.takenIn;
  }
}

// A model that goes on is explored in its turn. One whose effects end the run gives a stored state; where no attempt
// is left, it is explored too, to see that nothing happens any more.
void Exploration::add(const LauncherModel& model) {
  const std::optional<Point> point = pointOf(model);
  if (!point) {
    if (failure_.empty()) failure_ = "this model is outside the world" + decision_support::text(model);
    return;
  }
  stored_.insert(packed(canonical(storedPart(*point))));
  if (model.selected && !model.effects.empty() && model.effects.back().kind == EffectKind::Exit) return;
  const std::uint64_t number = packed(canonical(*point));
  if (known_.insert(number).second) waiting_.push_back(number);
}

void Exploration::fail(const Step& step, const std::string& what) {
  failure_ += what + "\n";
  if (described_) return;
  described_ = true;
  if (step.before != nullptr) failure_ += "before:" + decision_support::text(*step.before);
  failure_ += "\nin force: " + decision_support::text(*step.inForce) + describeInput(step) +
              "\nafter:" + decision_support::text(*step.after) + "\n";
}

}  // namespace launcher_stub::decision_space
