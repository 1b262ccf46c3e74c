// The exit transition while its write fails.
#include <gtest/gtest.h>

#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

const std::string retryingLine = "exit transition write failed; retrying";
const std::string exitingLine = "exit transition write failed for 30 seconds; exiting";
const std::string writeFailureBox = "cannot write launcher state";

TEST(exitTransition, thatFailsOnceWritesOneLineAndShowsNoBox) {
  SimOs sim;
  installTrial(sim, Runtime::crashing(9));
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).skip(1).times(1);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb", "bbbb", "aaaa"}));
  EXPECT_EQ(startTimes(sim), (Times{0, 500, 750, 1'000}));
  EXPECT_EQ(sim.lines(), Lines{retryingLine});
  EXPECT_EQ(boxTexts(sim), Lines{});
}

TEST(exitTransition, thatKeepsFailingIsGivenUpAfterThirtySeconds) {
  SimOs sim;
  installTrial(sim, Runtime::crashing(9));
  int tries = 0;
  countCalls(sim, Call::replace, sim.statePath(L"boot-v1.json"), tries);
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).skip(1);

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lines(), (Lines{retryingLine, writeFailureBox, exitingLine}));
  EXPECT_EQ(timesOfLine(sim, retryingLine), Times{250});
  EXPECT_EQ(timesOfLine(sim, exitingLine), Times{30'250});
  EXPECT_EQ(boxTexts(sim), Lines{writeFailureBox});
  EXPECT_EQ(tries, 1 + 121);
  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 30'250U);
}

TEST(exitTransition, givenUpLeavesTheStateOfTheLastCommit) {
  SimOs sim;
  installTrial(sim, Runtime::crashing(9));
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).skip(1);

  EXPECT_EQ(sim.runLauncher(), 1);

  BootState started = trialState();
  started.attemptCount = 1;
  EXPECT_EQ(sim.bootState(), started);
}

TEST(exitTransition, writesASecondRetryingLineOnlyInAnotherLoop) {
  SimOs sim;
  installTrial(sim, Runtime::crashing(9));
  // The write after the first crash fails for 20 s, the one after the second crash again.
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).skip(1).times(80);
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).skip(2).times(80);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(timesOfLine(sim, retryingLine), (Times{250, 20'500}));
  EXPECT_EQ(startTimes(sim), (Times{0, 20'250, 40'500, 40'750}));
  EXPECT_EQ(boxTexts(sim), Lines{}) << "the success in between ends the run of failures";
}

TEST(exitTransition, withoutAWriteNeedsNoLockAndCannotFail) {
  SimOs sim;
  sim.installSeed(readyAndEnding(1'000, 7));
  sim.after(500, [&] {
    sim.holdFor(sim.statePath(L"state.lock"), 60'000);
    sim.fail(Call::replace);
  });

  EXPECT_EQ(sim.runLauncher(), 7);

  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 1'000U);
  EXPECT_EQ(sim.lines(), Lines{});
  sim.advance(60'000);
}

}  // namespace
}  // namespace launcher_stub
