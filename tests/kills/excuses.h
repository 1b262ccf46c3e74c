// What Wine now and then does by itself, and how often a program that runs these tests puts up with it.
#pragma once

#include <cstdint>

namespace end_to_end::kills {

enum class Excuse : std::uint8_t {
  launcherEnded,      // a launcher that nobody has touched ended before its first attempt, with a code above 1
  launcherNotStarted  // the system did not start a launcher; it is started again
};

// Whether this one may be put down to the system too: one ended launcher and five that were not started. Counted for
// the whole program, by all its threads; each call counts.
bool mayExcuse(Excuse excuse);

}  // namespace end_to_end::kills
