// The launch transition while its write fails.
#include <gtest/gtest.h>

#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

const std::string retryingLine = "launch transition write failed; retrying";
const std::string exitingLine = "launch transition write failed for 30 seconds; exiting";
const std::string writeFailureBox = "cannot write launcher state";

TEST(launchTransition, thatFailsOnceWritesOneLineAndShowsNoBox) {
  SimOs sim;
  sim.installSeed(readyAndEnding(1'000));
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).times(1);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(startTimes(sim), Times{250});
  EXPECT_EQ(sim.lines(), Lines{retryingLine});
  EXPECT_EQ(boxTexts(sim), Lines{});
}

TEST(launchTransition, thatKeepsFailingIsGivenUpAfterThirtySeconds) {
  SimOs sim;
  sim.installSeed(Runtime::healthy());
  int tries = 0;
  countCalls(sim, Call::replace, sim.statePath(L"boot-v1.json"), tries);
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json"));

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lines(), (Lines{retryingLine, writeFailureBox, exitingLine}));
  EXPECT_EQ(timesOfLine(sim, retryingLine), Times{0}) << "at once";
  EXPECT_EQ(timesOfLine(sim, exitingLine), Times{30'000});
  EXPECT_EQ(boxTexts(sim), Lines{writeFailureBox});
  EXPECT_EQ(tries, 121) << "every 250 ms from 0 to 30000";
  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 30'000U);
  EXPECT_EQ(sim.started(), Names{});
  EXPECT_FALSE(sim.exists(sim.statePath(L"boot-v1.json")));
}

TEST(launchTransition, thatSucceedsInTheLastMomentGoesOnWithoutABox) {
  SimOs sim;
  sim.installSeed(readyAndEnding(1'000));
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).until(sim.now() + 30'000);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(startTimes(sim), Times{30'000});
  EXPECT_EQ(sim.lines(), Lines{retryingLine});
  EXPECT_EQ(boxTexts(sim), Lines{});
}

TEST(launchTransition, countsItsThirtySecondsFromTheEndOfTheFirstTry) {
  SimOs sim;
  sim.installSeed(Runtime::healthy());
  // Each try now takes 2000 ms, and 250 ms pass in between: failures at 2000, 4250, ..., 33500.
  sim.fail(Call::rename, sim.statePath(L"boot-v1.json"));

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(timesOfLine(sim, retryingLine), Times{2'000});
  EXPECT_EQ(timesOfLine(sim, exitingLine), Times{33'500});
  EXPECT_EQ(sim.count(Call::replace), 15);
}

TEST(launchTransition, takesTheStateLockAnewForEachFurtherTry) {
  SimOs sim;
  sim.installSeed(readyAndEnding(1'000));
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).times(1);
  sim.after(100, [&] { sim.holdFor(sim.statePath(L"state.lock"), 7'000); });

  EXPECT_EQ(sim.runLauncher(), 0);

  // The second try waits from 250 to 5250 in vain, the third from 5500 until the lock is free.
  EXPECT_EQ(startTimes(sim), Times{7'100});
  EXPECT_EQ(sim.lines(), Lines{retryingLine});
}

TEST(launchTransition, repeatsTheSameStateAfterATryThatWentHalfWay) {
  SimOs sim;
  installTrusted(sim);
  sim.install("cccc", Runtime::healthy());
  sim.writePending("request-0001", 5, "cccc");
  // The state is written and the request deleted before the attempt directory fails.
  sim.fail(Call::createPrivateDirectory, L"attempts\\*").times(1);
  sim.after(1'000, [&] {
    EXPECT_EQ(sim.generation(), 6U) << "raised once, not once for each try";
    EXPECT_EQ(sim.previousState(), storedState(5, "aaaa"));
  });

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"cccc"});
  EXPECT_EQ(sim.names(sim.statePath(L"attempts")).size(), 1U) << "the same attempt";
  EXPECT_EQ(sim.lines(), Lines{retryingLine});
}

TEST(launchTransition, isRepeatedForEveryDurableStepThatFails) {
  struct Case {
    const char* why;
    Call call;
    std::wstring pattern;
  };
  const Case cases[] = {
      {"the previous copy", Call::replace, L"boot-v1.previous.json"},
      {"the request", Call::removeFile, L"pending-v1.json"},
      {"the attempt directory", Call::createPrivateDirectory, L"attempts\\*"},
      {"the attempt record", Call::replace, L"attempts\\*\\boot-v1.json"},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    installTrusted(sim);
    sim.install("cccc", Runtime::healthy());
    sim.writePending("request-0001", 5, "cccc");
    sim.fail(c.call, c.pattern).times(2);

    EXPECT_EQ(sim.runLauncher(), 0);

    EXPECT_EQ(startTimes(sim), Times{500});
    EXPECT_EQ(sim.started(), Names{"cccc"});
    EXPECT_EQ(sim.lines(), Lines{retryingLine});
  }
}

}  // namespace
}  // namespace launcher_stub
