// What follows a start that fails, and the spawn-failure transition while its write fails.
#include <gtest/gtest.h>

#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

const std::string retryingLine = "spawn failure transition write failed; retrying";
const std::string exitingLine = "spawn failure transition write failed for 30 seconds; exiting";
const std::string writeFailureBox = "cannot write launcher state";

// "aaaa" is active, "cccc" was before it, and "aaaa" cannot be started.
void installUnstartable(SimOs& sim) {
  sim.installSeed(Runtime::healthy());
  sim.install("aaaa", Runtime::healthy());
  sim.install("cccc", Runtime::healthy());
  sim.writeBootState(storedState(5, "aaaa", "", "cccc"));
  sim.fail(Call::createProcess, L"aaaa\\entry-v1.exe");
}

TEST(failedStart, isFollowedByTheNextSlot) {
  SimOs sim;
  installUnstartable(sim);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"cccc"});
  EXPECT_EQ(startTimes(sim), Times{0});
  EXPECT_EQ(sim.names(sim.statePath(L"attempts")).size(), 2U) << "each start has an attempt of its own";
  EXPECT_EQ(sim.bootState(), storedState(5, "aaaa", "", "cccc"));
  ASSERT_EQ(sim.lines().size(), 2U);
  EXPECT_TRUE(sim.lines()[0].starts_with("cannot start ")) << sim.lines()[0];
  EXPECT_TRUE(sim.lines()[1].ends_with("\\aaaa\\entry-v1.exe")) << sim.lines()[1];
}

TEST(failedStart, isWhateverStepOfItFails) {
  for (const Call step : {Call::duplicateLease, Call::buildHandleList, Call::readEnvironment, Call::createProcess,
                          Call::createJob, Call::limitJob, Call::assignToJob, Call::resumeThread}) {
    SCOPED_TRACE(sim::callName(step));
    SimOs sim;
    installTrusted(sim);
    sim.fail(step).times(1);

    EXPECT_EQ(sim.runLauncher(), 0);

    EXPECT_EQ(sim.started().back(), "seed");
    EXPECT_EQ(sim.livingProcesses(), 0);
  }
}

TEST(failedStart, ofEveryRuntimeEndsTheRun) {
  SimOs sim;
  installUnstartable(sim);
  sim.fail(Call::createProcess);

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.started(), Names{});
  EXPECT_EQ(sim.lines().back(), "No runnable runtime");
  EXPECT_EQ(boxTexts(sim), Lines{"No runnable runtime"});
  EXPECT_EQ(sim.names(sim.statePath(L"attempts")).size(), 3U);
}

TEST(failedStart, ofACandidateCountsAsOneOfItsThree) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());
  sim.fail(Call::createProcess, L"bbbb\\entry-v1.exe");

  EXPECT_EQ(sim.runLauncher(), 0);

  BootState rejected = storedState(6, "aaaa");
  rejected.rejected = {"bbbb"};
  EXPECT_EQ(sim.started(), Names{"aaaa"});
  EXPECT_EQ(sim.bootState(), rejected);
  EXPECT_EQ(sim.names(sim.statePath(L"attempts")).size(), 4U);
}

TEST(failedStart, duringSupervisionIsFollowedByTheNextChoice) {
  SimOs sim;
  installTrial(sim, Runtime::crashing(9));
  sim.fail(Call::createProcess, L"bbbb\\entry-v1.exe").skip(1).times(1);  // the second of three

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb", "aaaa"}));
  EXPECT_EQ(startTimes(sim), (Times{0, 250, 500}));
}

TEST(failedStart, ofTheLastRuntimeDuringSupervisionEndsTheRun) {
  SimOs sim;
  sim.installSeed(Runtime::healthy());
  sim.install("aaaa", Runtime::crashing(9));
  sim.writeBootState(storedState(5, "aaaa"));
  sim.fail(Call::createProcess, L"seed\\entry-v1.exe");

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.started(), Names{"aaaa"});
  EXPECT_EQ(boxTexts(sim), Lines{"No runnable runtime"});
  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 250U) << "without another tick";
}

TEST(spawnFailureTransition, thatFailsOnceWritesOneLineAndShowsNoBox) {
  SimOs sim;
  installUnstartable(sim);
  sim.fail(Call::replace, L"boot-v1.json").skip(1).times(1);  // the second attempt's record

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(startTimes(sim), Times{250});
  EXPECT_EQ(sim.lineCount(retryingLine), 1);
  EXPECT_EQ(boxTexts(sim), Lines{});
}

TEST(spawnFailureTransition, thatKeepsFailingIsGivenUpAfterThirtySeconds) {
  SimOs sim;
  installUnstartable(sim);
  int tries = 0;
  countCalls(sim, Call::replace, L"boot-v1.json", tries);
  sim.fail(Call::replace, L"boot-v1.json").skip(1);

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(timesOfLine(sim, retryingLine), Times{0});
  EXPECT_EQ(timesOfLine(sim, writeFailureBox), Times{30'000});
  EXPECT_EQ(timesOfLine(sim, exitingLine), Times{30'000});
  EXPECT_EQ(sim.lines().back(), exitingLine);
  EXPECT_EQ(boxTexts(sim), Lines{writeFailureBox});
  EXPECT_EQ(tries, 1 + 121);
  EXPECT_EQ(sim.started(), Names{});
}

TEST(spawnFailureTransition, givenUpDuringSupervisionEndsTheRunWithOne) {
  SimOs sim;
  sim.installSeed(Runtime::healthy());
  sim.install("aaaa", Runtime::crashing(9));
  sim.install("cccc", Runtime::healthy());
  sim.writeBootState(storedState(5, "aaaa", "", "cccc"));
  sim.fail(Call::createProcess, L"cccc\\entry-v1.exe");
  sim.fail(Call::replace, L"boot-v1.json").skip(2);

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(timesOfLine(sim, exitingLine), Times{30'250});
  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 30'250U);
  EXPECT_EQ(sim.started(), Names{"aaaa"});
}

}  // namespace
}  // namespace launcher_stub
