// From the active slot down to the seed, and the end of a run without any.
#include <gtest/gtest.h>

#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

TEST(fallThrough, goesFromActiveToPreviousToSeed) {
  SimOs sim;
  sim.installSeed(readyAndEnding(5'000, 3));
  sim.install("aaaa", Runtime::crashing(9));
  sim.install("cccc", Runtime::crashing(8));
  sim.writeBootState(storedState(5, "aaaa", "", "cccc"));

  EXPECT_EQ(sim.runLauncher(), 3);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "cccc", "seed"})) << "none is tried twice in one run";
  EXPECT_EQ(sim.bootState(), storedState(5, "aaaa", "", "cccc")) << "and none is given up for later runs";
}

TEST(fallThrough, endsWithNoRunnableRuntime) {
  SimOs sim;
  sim.installSeed(Runtime::crashing(7));
  sim.install("aaaa", Runtime::crashing(9));
  sim.writeBootState(storedState(5, "aaaa"));

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "seed"}));
  EXPECT_EQ(sim.lines(), Lines{"No runnable runtime"});
  EXPECT_EQ(boxTexts(sim), Lines{"No runnable runtime"});
}

TEST(fallThrough, beginsAtTheActiveSlotInTheNextRun) {
  SimOs sim;
  sim.installSeed(readyAndEnding(5'000));
  sim.install("aaaa", {Runtime::crashing(9), Runtime::healthy()});
  sim.writeBootState(storedState(5, "aaaa"));

  EXPECT_EQ(sim.runLauncher(), 0);
  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "seed", "aaaa"}));
}

TEST(fallThrough, skipsARejectedCandidateOfTheSameNameAsNothing) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());
  BootState state = trialState();
  state.rejected = {"bbbb"};
  sim.writeBootState(state);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"aaaa"});
}

TEST(settledMark, survivesAFallThrough) {
  SimOs sim;
  installTrial(sim, Runtime().readyAt(1).exitsAt(1'000, 9));
  sim.install("aaaa", Runtime::crashing(7));

  // The candidate was ready before it failed; the active slot's end then counts as a normal one.
  EXPECT_EQ(sim.runLauncher(), 7);

  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb", "bbbb", "aaaa"}));
}

TEST(settledMark, isKeptFromAnEarlierTickOfTheSameAttempt) {
  SimOs sim;
  sim.installSeed(Runtime().readyAt(1).exitsAt(60'000, 7));
  sim.after(30'000, [&] { sim.remove(sim.starts().back().attemptDirectory + L"\\ready-v1"); });

  EXPECT_EQ(sim.runLauncher(), 7);
}

TEST(anActiveSlot, runsAsLongAsItLikesWithoutAHealthyMarker) {
  SimOs sim;
  sim.installSeed(Runtime().readyAt(1).exitsAt(3'600'000, 0));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"seed"});
  EXPECT_EQ(sim.count(Call::terminateJob), 1) << "only at its end";
}

}  // namespace
}  // namespace launcher_stub
