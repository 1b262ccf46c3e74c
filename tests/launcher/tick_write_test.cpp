// What a tick writes: the promotion, which is due 60 s after a healthy marker seen at 500 ms.
#include <gtest/gtest.h>

#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

const std::string retryingLine = "tick metadata write failed; retrying";
const std::string droppingLine = "tick metadata write failed for 30 seconds; dropping write";
const std::string writeFailureBox = "cannot write launcher state";
constexpr std::uint64_t promotionDue = 60'500;  // ms after the start

Runtime healthyUntil(std::uint64_t ms, std::uint32_t code = 0) {
  return Runtime().readyAt(100).healthyAt(500).exitsAt(ms, code);
}

// Replacing the state fails from `from` to `until`, in ms after the start.
void failWrites(SimOs& sim, std::uint64_t from, std::uint64_t until) {
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).from(sim.now() + from).until(sim.now() + until);
}

TEST(tickWrite, thatFailsOnceWritesOneLineAndIsTriedAgainInTheNextTick) {
  SimOs sim;
  installTrial(sim, healthyUntil(70'000));
  failWrites(sim, promotionDue, promotionDue + 1);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(timeOfState(sim, "\"active\":\"bbbb\""), promotionDue + 250);
  EXPECT_EQ(sim.lines(), Lines{retryingLine});
  EXPECT_EQ(boxTexts(sim), Lines{});
}

TEST(tickWrite, thatKeepsFailingIsDroppedAfterThirtySeconds) {
  SimOs sim;
  installTrial(sim, Runtime().readyAt(100).healthyAt(500));
  int tries = 0;
  countCalls(sim, Call::replace, sim.statePath(L"boot-v1.json"), tries);
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).skip(1);
  sim.killLauncherAt(sim.now() + 300'000);

  (void)sim.runLauncher();

  EXPECT_EQ(sim.lines(), (Lines{retryingLine, writeFailureBox, droppingLine}));
  EXPECT_EQ(timesOfLine(sim, retryingLine), Times{promotionDue});
  EXPECT_EQ(timesOfLine(sim, writeFailureBox), Times{promotionDue + 30'000});
  EXPECT_EQ(timesOfLine(sim, droppingLine), Times{promotionDue + 30'000});
  EXPECT_EQ(boxTexts(sim), Lines{writeFailureBox});
  EXPECT_EQ(tries, 1 + 121) << "one for each tick until it is dropped, then none";
  EXPECT_TRUE(sim.lastRun().killed) << "the runtime was still supervised";
}

TEST(tickWrite, thatSucceedsInTheLastMomentIsNotDropped) {
  SimOs sim;
  installTrial(sim, healthyUntil(120'000));
  failWrites(sim, promotionDue, promotionDue + 30'000);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(timeOfState(sim, "\"active\":\"bbbb\""), promotionDue + 30'000);
  EXPECT_EQ(sim.lines(), Lines{retryingLine});
}

TEST(tickWrite, isDroppedEvenWhenWritingWouldWorkAgain) {
  SimOs sim;
  installTrial(sim, Runtime().readyAt(100).healthyAt(500));
  failWrites(sim, promotionDue, promotionDue + 30'001);
  sim.killLauncherAt(sim.now() + 300'000);

  (void)sim.runLauncher();

  EXPECT_EQ(timeOfState(sim, "\"active\":\"bbbb\""), 0U) << "not for this attempt";
}

TEST(tickWrite, isTriedAgainForANewAttemptAfterItWasDropped) {
  SimOs sim;
  installTrial(sim, Runtime::silent());
  sim.install("bbbb", {healthyUntil(100'000, 9), healthyUntil(70'000)});
  failWrites(sim, promotionDue, 95'000);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.lineCount(droppingLine), 1);
  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb"}));
  EXPECT_EQ(startTimes(sim), (Times{0, 100'000}));
  EXPECT_EQ(timeOfState(sim, "\"active\":\"bbbb\""), 100'000 + promotionDue);
  EXPECT_EQ(sim.bootState(), storedState(6, "bbbb", "", "aaaa"));
}

TEST(tickWrite, hasThirtySecondsOfItsOwnForEachAttempt) {
  SimOs sim;
  installTrial(sim, Runtime::silent());
  sim.install("bbbb", {healthyUntil(80'000, 9), healthyUntil(100'000)});
  constexpr std::uint64_t secondDue = 80'250 + promotionDue;
  failWrites(sim, promotionDue, 80'200);           // 19.5 s of the first attempt, and the first try after its end
  failWrites(sim, secondDue, secondDue + 20'000);  // 20 s of the second

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(startTimes(sim), (Times{0, 80'250}));
  EXPECT_EQ(sim.lineCount(droppingLine), 0);
  EXPECT_EQ(timesOfLine(sim, retryingLine), (Times{promotionDue, secondDue}));
  EXPECT_EQ(timeOfState(sim, "\"active\":\"bbbb\""), secondDue + 20'000);
}

TEST(tickWrite, waitsForTheStateLockInEachTry) {
  SimOs sim;
  installTrial(sim, healthyUntil(90'000));
  sim.after(60'000, [&] { sim.holdFor(sim.statePath(L"state.lock"), 12'000); });

  EXPECT_EQ(sim.runLauncher(), 0);

  // 5000 ms from 60500, 5000 ms from 65750, then from 71000 until the lock is free.
  EXPECT_EQ(timeOfState(sim, "\"active\":\"bbbb\""), 72'000U);
  EXPECT_EQ(timesOfLine(sim, retryingLine), Times{65'500});
}

TEST(tick, thatWritesNothingTakesNoLock) {
  SimOs sim;
  installTrial(sim, Runtime().readyAt(100).healthyAt(500).exitsAt(50'000, 9));
  sim.after(10, [&] { sim.holdFor(sim.statePath(L"state.lock"), 45'000); });

  sim.killLauncherAt(sim.now() + 49'000);
  (void)sim.runLauncher();

  EXPECT_EQ(sim.count(Call::openLock), 2) << "the lease and the launch transition's";
  EXPECT_EQ(sim.lines(), Lines{});
}

TEST(exit, whileTickWritesFailStillGetsItsTransition) {
  SimOs sim;
  installTrial(sim, Runtime::silent());
  sim.install("bbbb", {healthyUntil(70'000, 9), healthyUntil(90'000)});
  failWrites(sim, promotionDue, 85'000);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(timesOfLine(sim, retryingLine), Times{promotionDue});
  EXPECT_EQ(timesOfLine(sim, "exit transition write failed; retrying"), Times{70'000});
  EXPECT_EQ(startTimes(sim), (Times{0, 85'000}));
  EXPECT_EQ(boxTexts(sim), Lines{});
}

TEST(exit, afterTickWritesWereDroppedRetriesForThirtySecondsOfItsOwn) {
  SimOs sim;
  installTrial(sim, healthyUntil(100'000, 9));
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).skip(1);

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lines(), (Lines{retryingLine, writeFailureBox, droppingLine, "exit transition write failed; retrying",
                                "exit transition write failed for 30 seconds; exiting"}));
  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 130'000U);
  EXPECT_EQ(boxTexts(sim), Lines{writeFailureBox}) << "one box for all of it";
}

}  // namespace
}  // namespace launcher_stub
