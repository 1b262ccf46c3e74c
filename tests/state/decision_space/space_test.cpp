// However a run ends, it leaves a stored state that is one of those that the start inputs begin with: that closes the
// circle, and makes what is explored all that can be reached in this small world.
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdio>

#include "exploration.h"

namespace launcher_stub::decision_space {
namespace {

// Explored once for all tests.
const Exploration& explored() {
  static const Exploration exploration = [] {
    const auto begun = std::chrono::steady_clock::now();
    Exploration all;
    all.run();
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begun;
    const Counts& counts = all.counts();
    std::printf("%zu models, %zu stored states; %zu pairs (start %zu, spawn %zu, tick %zu, exit %zu); %.1f s\n",
                all.models(), all.storedStates(), all.pairs(), counts.starts, counts.spawns, counts.ticks, counts.exits,
                seconds.count());
    return all;
  }();
  return exploration;
}

TEST(decisionSpace, everyReachableStepAgreesWithTheSecondImplementationAndTheRules) {
  EXPECT_TRUE(explored().failure().empty()) << explored().failure();
}

// The size is known: a domain that shrinks by mistake is seen.
TEST(decisionSpace, isAsLargeAsItWasCounted) {
  EXPECT_EQ(explored().models(), 131'302U);
  EXPECT_EQ(explored().storedStates(), 1'410U);
  EXPECT_EQ(explored().pairs(), 4'187'452U);
}

TEST(decisionSpace, everyRunLeavesAStateThatARunBeginsWith) { EXPECT_EQ(explored().openEnds(), 0U); }

TEST(decisionSpace, holdsEveryKindOfEvent) {
  const Counts& counts = explored().counts();
  std::printf(
      "candidate starts %zu, seed starts %zu, promotions %zu, time-outs %zu, taken in %zu, no runtime %zu, "
      "overflows %zu, relaunches %zu\n",
      counts.candidateStarts, counts.seedStarts, counts.promotions, counts.timeouts, counts.takenIn, counts.noRuntime,
      counts.overflows, counts.relaunches);
  for (const std::size_t count : {counts.candidateStarts, counts.seedStarts, counts.promotions, counts.timeouts,
                                  counts.takenIn, counts.noRuntime, counts.overflows, counts.relaunches}) {
    EXPECT_GT(count, 100U);
  }
}

// Three of the candidate, and one each of active, previous and seed. As every failure leaves fewer starts, that is the
// longest run of failures.
TEST(decisionSpace, runHoldsAtMostSixStartsThatFail) { EXPECT_EQ(explored().counts().mostStartsLeft, 6U); }

}  // namespace
}  // namespace launcher_stub::decision_space
