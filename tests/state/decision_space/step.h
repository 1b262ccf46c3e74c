// A step of the decision, and plain questions about it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "state/decision.h"

namespace launcher_stub::decision_space {

using Effects = std::vector<TransitionEffect>;

// A step as seen from outside. `before` is null for a start input; exactly one of the four inputs is not null.
struct Step {
  const BootState* inForce = nullptr;  // what the step went on from, before any write of its own
  const LauncherModel* before = nullptr;
  const LauncherModel* after = nullptr;
  const StartInput* start = nullptr;
  const TickInput* tick = nullptr;
  const SpawnInput* spawn = nullptr;
  const ExitInput* exit = nullptr;
};

// The state that a start goes on from: the primary one; else the backup, marked as recovered and raised to the floor;
// else an empty one.
BootState stateInForce(const StartInput& input);

unsigned countOf(const Effects& effects, EffectKind kind);
bool has(const Effects& effects, EffectKind kind);
bool isReport(const TransitionEffect& effect, const char* message);
bool isOverflow(const LauncherModel& model);
bool hasNoRuntime(const LauncherModel& model);
bool isRejected(const BootState& state, const std::string& slot);

// The states that were written, in order, with the one in force before them at the front.
std::vector<const BootState*> statesWritten(const Step& step);

// The running attempt before the step was of kind 0.
bool wasCandidate(const Step& step);

// The child has ended in a way that counts as a failure, or was never started; and an end that is none.
bool isFailure(const Step& step);
bool isGoodEnd(const Step& step);

// The step starts something.
bool startsHere(const Step& step);

// The slot, or the seed, is there and has not failed in this run.
bool isStartable(const LauncherModel& model, const std::string& slot);

// From one state to the next, only one more start of the candidate has been counted.
bool isCountedStart(const BootState& before, const BootState& after);

// How many starts may still come in this run, the running one not counted: those that the candidate has left, and one
// each for the other slots that could be started and are not running.
unsigned startsLeft(const LauncherModel& model);

}  // namespace launcher_stub::decision_space
