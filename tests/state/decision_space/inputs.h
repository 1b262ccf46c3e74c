// All inputs of the small world.
//
// Start inputs are the product of the stored states with everything else that such an input holds, less what is
// argued away here:
//
// - Names of slots are numbered by their first mention in active, previous, candidate, requested candidate. A slot
//   that none of these mentions is there, usable and not rejected, and must never be started.
// - The check of the slots puts each of them into one of three places: usable, ignored (the exemption set), neither.
//   All three are gone through for the candidate, on and off the rejected list. The exemption of another slot has no
//   meaning, so a requested slot is usable or ignored, on and off the list; one that is only active or previous is
//   usable, usable and on the list (which must not matter), or neither.
// - The request's id is always the same one; the state's last id is none, that one, or another. The request names the
//   generation in force, the next, or the one after that: two bumps can come before the comparison.
// - With a backup only its generation and the floor are new. So it comes with attemptCount 0 and 3 only.
// - "recovered", and without a request lastRequestId, are carried only; both values come in turn. So does a backup that
//   must not be looked at because the primary is valid.
#pragma once

#include <functional>
#include <vector>

#include "domain.h"
#include "state/decision.h"

namespace launcher_stub::decision_space {

// Calls `use` with every start input, until it gives false.
void forEachStart(const std::function<bool(const StartInput&)>& use);

// What can happen to a model next. Before the child is there: the result of the start. Then: ticks at the moments
// around both durations, with every pair of markers, and the child's end with every kind of restart request. The clock
// does not run backwards from a time-out. A model without a running attempt gets one input of each kind.
std::vector<SpawnInput> spawnInputs(const Point& point);
std::vector<TickInput> tickInputs(const Point& point);
std::vector<ExitInput> exitInputs(const Point& point);

}  // namespace launcher_stub::decision_space
