// The exploration of the small world of domain.h, to a fixed point: every start input, and every model that a step
// gives with every input that can come next. After every step its result is held against the second implementation and
// against the rules, and the step is taken a second time. It stops at the first step that is wrong.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "domain.h"
#include "step.h"

namespace launcher_stub::decision_space {

// How often something happened: a world in which it never does would prove nothing about it.
struct Counts {
  std::size_t starts = 0;
  std::size_t ticks = 0;
  std::size_t spawns = 0;
  std::size_t exits = 0;
  std::size_t candidateStarts = 0;
  std::size_t seedStarts = 0;
  std::size_t promotions = 0;
  std::size_t timeouts = 0;
  std::size_t takenIn = 0;
  std::size_t noRuntime = 0;
  std::size_t overflows = 0;
  std::size_t relaunches = 0;
  unsigned mostStartsLeft = 0;  // after a start input
};

class Exploration {
 public:
  void run();

  // Empty when every step was right; else what was wrong, with the step.
  const std::string& failure() const { return failure_; }

  const Counts& counts() const { return counts_; }
  std::size_t models() const { return known_.size(); }
  std::size_t storedStates() const { return begunWith_.size(); }
  std::size_t pairs() const { return counts_.starts + counts_.ticks + counts_.spawns + counts_.exits; }

  // Stored states that a run leaves and that no start input begins with.
  std::size_t openEnds() const;

 private:
  bool takeStart(const StartInput& input);
  void expand(const Point& point);
  void addStarted(LauncherModel model);
  void check(const Step& step, const LauncherModel& expected, const LauncherModel& again);
  void count(const Step& step);
  void add(const LauncherModel& model);
  void fail(const Step& step, const std::string& what);

  std::unordered_set<std::uint64_t> known_;      // models, packed
  std::unordered_set<std::uint64_t> stored_;     // stored states that runs leave, packed
  std::unordered_set<std::uint64_t> begunWith_;  // stored states that start inputs begin with, packed
  std::vector<std::uint64_t> waiting_;           // models that are known and not yet expanded
  Counts counts_;
  std::string failure_;
  bool described_ = false;
};

}  // namespace launcher_stub::decision_space
