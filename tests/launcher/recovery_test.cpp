// State files that were lost or damaged, as whole runs.
#include <gtest/gtest.h>

#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

TEST(recovery, restoresThePreviousStateOnceAndThenFindsNothingToRepair) {
  SimOs sim;
  installTrusted(sim);
  sim.writeFile(sim.statePath(L"boot-v1.json"), "{\"generation\":\"8\"");
  sim.writePreviousState(storedState(4, "aaaa"));

  EXPECT_EQ(sim.runLauncher(), 0);
  BootState recovered = storedState(5, "aaaa");
  recovered.recovered = true;
  EXPECT_EQ(sim.bootState(), recovered);

  EXPECT_EQ(sim.runLauncher(), 0);
  EXPECT_EQ(sim.bootState(), recovered);
  EXPECT_EQ(sim.replacementsOf(sim.statePath(L"boot-v1.json")), 1) << "the second run has written nothing";
}

TEST(recovery, keepsTheCopyThatItCameFrom) {
  SimOs sim;
  installTrusted(sim);
  sim.remove(sim.statePath(L"boot-v1.json"));
  sim.writePreviousState(storedState(4, "aaaa"));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.previousState(), storedState(4, "aaaa"));
}

TEST(recovery, goesOnWithTheTrialOfTheCopy) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());
  sim.remove(sim.statePath(L"boot-v1.json"));
  BootState state = trialState();
  state.attemptCount = 2;
  sim.writePreviousState(state);

  EXPECT_EQ(sim.runLauncher(), 0);

  BootState promoted = storedState(7, "bbbb", "", "aaaa");
  promoted.recovered = true;
  EXPECT_EQ(sim.started(), Names{"bbbb"});
  EXPECT_EQ(sim.bootState(), promoted);
}

TEST(recovery, isFollowedByPreviousCopiesOfTheRestoredState) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());
  sim.remove(sim.statePath(L"boot-v1.json"));
  sim.writePreviousState(trialState());

  EXPECT_EQ(sim.runLauncher(), 0);

  BootState restored = storedState(6, "aaaa", "bbbb");
  restored.recovered = true;
  restored.attemptCount = 1;
  EXPECT_EQ(sim.previousState(), restored) << "as it stood before the promotion";
}

TEST(recovery, ofNothingStartsTheSeedAndOverwritesNothing) {
  SimOs sim;
  installTrusted(sim);
  sim.writeFile(sim.statePath(L"boot-v1.json"), "damaged");
  sim.writeFile(sim.statePath(L"boot-v1.previous.json"), "damaged too");

  for (int run = 0; run < 2; ++run) EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"seed", "seed"}));
  EXPECT_EQ(sim.read(sim.statePath(L"boot-v1.json")), "damaged");
  EXPECT_EQ(sim.read(sim.statePath(L"boot-v1.previous.json")), "damaged too");
}

TEST(recovery, withoutAnyCopyStartsTheSeedAndOverwritesNothing) {
  SimOs sim;
  installTrusted(sim);
  sim.writeFile(sim.statePath(L"boot-v1.json"), "damaged");

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"seed"});
  EXPECT_EQ(sim.read(sim.statePath(L"boot-v1.json")), "damaged");
  EXPECT_FALSE(sim.exists(sim.statePath(L"boot-v1.previous.json")));
}

TEST(recovery, thatCannotBeWrittenIsRetriedLikeAnyLaunch) {
  SimOs sim;
  installTrusted(sim);
  sim.remove(sim.statePath(L"boot-v1.json"));
  sim.writePreviousState(storedState(4, "aaaa"));
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).times(4);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(startTimes(sim), Times{1'000});
  EXPECT_EQ(sim.generation(), 5U) << "raised once";
}

TEST(firstRun, isFollowedByOrdinaryRuns) {
  SimOs sim;
  sim.installSeed(readyAndEnding(1'000));

  EXPECT_EQ(sim.runLauncher(), 0);
  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"seed", "seed"}));
  EXPECT_EQ(sim.bootState(), storedState(1, ""));
  EXPECT_EQ(sim.replacementsOf(sim.statePath(L"boot-v1.json")), 1);
}

TEST(secondLauncher, isSilentWhileTheRuntimeOfADeadOneStillHoldsTheLease) {
  SimOs sim;
  installTrusted(sim);
  // The runtime lingers for 10 s after the launcher's death and keeps the inherited lease as long.
  sim.install("aaaa", Runtime().readyAt(1).survivesTermination(10'000));
  sim.killLauncherAt(sim.now() + 1'000);
  (void)sim.runLauncher();

  EXPECT_EQ(sim.runLauncher(), 0);
  EXPECT_EQ(sim.started(), Names{"aaaa"});
  EXPECT_EQ(sim.lines(), Lines{});

  sim.install("aaaa", Runtime::healthy());
  sim.advance(10'000);
  EXPECT_EQ(sim.runLauncher(), 0);
  EXPECT_EQ(sim.started(), (Names{"aaaa", "aaaa"}));
}

}  // namespace
}  // namespace launcher_stub
