// Time that only moves when somebody waits.
#pragma once

#include <cstdint>
#include <functional>
#include <map>

namespace launcher_stub::sim {

using Action = std::function<void()>;

class SimClock {
 public:
  explicit SimClock(std::uint64_t startMs) : now_(startMs) {}

  std::uint64_t now() const { return now_; }

  // Lets `action` run when the clock reaches `timeMs`; actions of the same time run in the order of their scheduling.
  // A time that has passed means the next movement of the clock, be it by 0 ms.
  void schedule(std::uint64_t timeMs, Action action) { scheduled_.emplace(timeMs, std::move(action)); }

  // Moves the clock to `timeMs` (never back) and runs what is scheduled up to then, each at its time. An action may
  // schedule more, and may throw: the clock then stands at its time and the rest stays scheduled.
  void runUntil(std::uint64_t timeMs);

 private:
  std::uint64_t now_;
  std::multimap<std::uint64_t, Action> scheduled_;
};

}  // namespace launcher_stub::sim
