// The small world that is explored: three slots and the seed, and of every number the few values around its limits.
//
// A model of this world is kept as a point: a handful of small numbers, of which a set with some 100000 entries is
// cheap. Models that no step can tell apart are one point. These are the arguments; each is used in pointOf(),
// canonical() or modelAt(), and nowhere else:
//
// - Names of slots. No step looks into a name, so slots are numbered by their first mention in active, previous,
//   candidate, selected. A slot that is mentioned nowhere cannot come up again in this run: only a start input brings
//   a name in. So its place in the sets is dropped.
// - The generation. After the start input a run bumps it at most once (a promotion and a rejection both end the
//   trial), so only the last two values are told apart from the rest; the rest is 1.
// - The id of the last request is compared with the ids in inputs alone, which are chosen to fit: it is there or not.
// - "recovered" is carried and never read. A model is given it when its attemptCount is odd, so that both values are
//   seen to be carried.
// - The order of the rejected list only shows when the list is full, which full_list_test.cpp is about.
// - Times are differences. A child starts at childStartMs. The healthy marker comes with the start or at the last
//   moment; one that comes before the start, by a clock that ran backwards, is moved to the start. The two durations
//   are the usual ones; that they come from the input is for other tests to see.
// - A nonce is equal to another or not: the running attempt has the first, the next one gets the second. Requests also
//   come with a third, of an attempt long gone.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "state/launcher_model.h"

namespace launcher_stub::decision_space {

constexpr std::uint64_t lastGeneration = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t childStartMs = 1'000'000;
constexpr std::uint64_t lateMarkMs = childStartMs + healthyWithinMs - 1;

inline const std::string runningNonce = "nonce-0001";
inline const std::string freshNonce = "nonce-0002";
inline const std::string lastRequest = "request-0001";

constexpr unsigned slotCount = 3;
constexpr unsigned seedNumber = slotCount + 1;

// 0 none, 1 to 3 the slots "aaaa" to "cccc", 4 the seed.
const std::string& slotName(unsigned number);

// All of these are small numbers. Sets have bit (1 << slot number).
struct Point {
  unsigned active = 0;
  unsigned previous = 0;
  unsigned candidate = 0;
  unsigned selected = 0;
  unsigned kind = 0;
  unsigned attemptCount = 0;   // 0 to 7
  unsigned topGeneration = 0;  // 0: at most the last but two; 1: the last but one; 2: the last
  unsigned requestKnown = 0;   // there is a lastRequestId
  unsigned rejected = 0;       // set
  unsigned runnable = 0;       // set
  unsigned failed = 0;         // set
  unsigned seedRunnable = 0;   // 0 or 1
  unsigned trialAllowed = 0;   // 0 or 1
  unsigned childStarted = 0;   // 0: chosen, the child not created yet
  unsigned mark = 0;           // 0 not seen, 1 at childStartMs, 2 at lateMarkMs
  unsigned settled = 0;        // 0 or 1
  unsigned timeoutQueued = 0;  // 0 or 1

  bool operator==(const Point&) const = default;
};

// None: the model has left the world, so the exploration would be incomplete.
std::optional<Point> pointOf(const LauncherModel& model);

// Drops what cannot matter any more and numbers the slots by their first mention.
Point canonical(const Point& point);

// The model that stands for the point; its effect list is empty.
LauncherModel modelAt(const Point& point);

// One number for one point, and back.
std::uint64_t packed(const Point& point);
Point unpacked(std::uint64_t number);

}  // namespace launcher_stub::decision_space
