#include "tests/simulation/sim_clock.h"

#include <algorithm>
#include <utility>

namespace launcher_stub::sim {

void SimClock::runUntil(std::uint64_t timeMs) {
  while (!scheduled_.empty() && scheduled_.begin()->first <= timeMs) {
    auto due = scheduled_.extract(scheduled_.begin());
    now_ = std::max(now_, due.key());
    due.mapped()();
  }
  now_ = std::max(now_, timeMs);
}

}  // namespace launcher_stub::sim
