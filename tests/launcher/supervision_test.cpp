#include "launcher/supervision.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

#include "tests/launcher/scenario.h"
#include "tests/slots/commit_support.h"

namespace launcher_stub {
namespace {

const std::string treeBox = "cannot end runtime process tree";

// --- The tick ---

TEST(tick, comesEvery250MillisecondsAndPollsOnce) {
  SimOs sim;
  sim.installSeed(readyAndEnding(10'000));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.count(Call::pollExit), 41) << "at 0, 250, ..., 10000";
  EXPECT_EQ(sim.count(Call::sleep), 40);
  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 10'000U);
}

TEST(tick, readsReadyOnlyUntilItIsSeen) {
  SimOs sim;
  sim.installSeed(Runtime().readyAt(1'000).exitsAt(10'000, 0));
  int reads = 0;
  countCalls(sim, Call::readFile, L"ready-v1", reads);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(reads, 5) << "at 0, 250, 500, 750 and 1000";
}

TEST(tick, goesOnReadingWhereReadyIsOfAnotherAttempt) {
  SimOs sim;
  sim.installSeed(Runtime().readyAt(1'000, Form::otherNonce).readyAt(2'000).exitsAt(3'000, 0));
  int reads = 0;
  countCalls(sim, Call::readFile, L"ready-v1", reads);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(reads, 9) << "from 0 to 2000";
}

TEST(tick, readsHealthyOnlyOfACandidateAndUntilItIsSeen) {
  struct Case {
    const char* why;
    BootState state;
    int reads;
  };
  const Case cases[] = {{"a candidate", trialState(), 5},
                        {"the active slot", storedState(5, "bbbb"), 0},
                        {"the previous slot", storedState(5, "", "", "bbbb"), 0}};

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.installSeed(Runtime::healthy());
    sim.install("bbbb", Runtime().readyAt(1).healthyAt(1'000).exitsAt(70'000, 0));
    sim.writeBootState(c.state);
    int reads = 0;
    countCalls(sim, Call::readFile, L"healthy-v1", reads);

    EXPECT_EQ(sim.runLauncher(), 0);

    EXPECT_EQ(reads, c.reads);
  }
}

TEST(tick, readsNoMarkerOfARuntimeThatHasEnded) {
  SimOs sim;
  sim.installSeed(Runtime::healthy());
  sim.install("aaaa", Runtime().readyAt(100).exitsAt(200, 7));
  sim.writeBootState(storedState(5, "aaaa"));

  EXPECT_EQ(sim.runLauncher(), 0);

  // Both came between two ticks: an end without a sign, so the seed follows.
  EXPECT_EQ(sim.started(), (Names{"aaaa", "seed"}));
}

TEST(tick, ignoresForeignAndHalfWrittenMarkers) {
  for (const Form form :
       {Form::otherNonce, Form::otherSlot, Form::half, Form::noSchemaVersion, Form::newerMajor, Form::empty}) {
    SCOPED_TRACE(static_cast<int>(form));
    SimOs sim;
    sim.installSeed(Runtime::healthy());
    sim.install("aaaa", Runtime().readyAt(100, form).exitsAt(2'000, 7));
    sim.writeBootState(storedState(5, "aaaa"));

    EXPECT_EQ(sim.runLauncher(), 0);

    EXPECT_EQ(sim.started(), (Names{"aaaa", "seed"}));
    EXPECT_EQ(sim.lines(), Lines{});
  }
}

TEST(tick, seesAMarkerThatWasHalfWrittenWhenItIsWhole) {
  SimOs sim;
  sim.installSeed(Runtime().readyAt(100, Form::half).readyAt(400).exitsAt(2'000, 7));

  EXPECT_EQ(sim.runLauncher(), 7);
}

TEST(tick, readsNoMarkerWhereTheRunHasStartedNothing) {
  commit_support::Launch launch;
  launch.start(Runtime().readyAt(100).exitsAt(1'000, 7));  // forgets that it was started
  launch.context.model.selected = "bbbb";
  launch.context.model.nextNonce = commit_support::attemptNonce;
  int reads = 0;
  countCalls(launch.sim, Call::readFile, L"ready-v1", reads);

  EXPECT_EQ(superviseRuntime(launch.context), SupervisionEnd::exit);

  EXPECT_EQ(reads, 0);
  EXPECT_EQ(launch.context.childExitCode, 7U);
  EXPECT_EQ(launch.context.exitCode, 1) << "an end without a sign, and nothing else to start";
}

TEST(tick, thatCannotLookAtTheChildEndsTheRunAlsoWithoutASelectedSlot) {
  commit_support::Launch launch;
  launch.start(Runtime::silent());
  launch.context.started = true;
  launch.context.exitCode = 0;
  launch.sim.fail(Call::pollExit);

  EXPECT_EQ(superviseRuntime(launch.context), SupervisionEnd::exit);

  EXPECT_EQ(launch.context.exitCode, 1);
  EXPECT_TRUE(launch.context.exitRequested);
  EXPECT_EQ(launch.sim.lines(), Lines{treeBox});
  EXPECT_EQ(launch.sim.count(Call::sleep), 0);
}

// --- The child's end ---

TEST(childEnd, withoutReadyIsAFailure) {
  SimOs sim;
  sim.installSeed(readyAndEnding(5'000));
  sim.install("aaaa", Runtime().exitsAt(5'000, 0));
  sim.writeBootState(storedState(5, "aaaa"));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "seed"}));
  EXPECT_EQ(startTimes(sim), (Times{0, 5'000}));
}

TEST(childEnd, isFoundOnceAndNeverPolledAgain) {
  SimOs sim;
  installTrial(sim, Runtime().exitsAt(1, 9));
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).skip(1).times(40);  // 10 s between the end and the next start
  sim.killLauncherAt(sim.now() + 10'000);

  (void)sim.runLauncher();

  EXPECT_EQ(sim.count(Call::pollExit), 2) << "running at 0, ended at 250";
}

TEST(childEnd, whoseCodeCannotBeReadCountsAsOne) {
  SimOs sim;
  sim.installSeed(readyAndEnding(1'000, 0));
  sim.fail(Call::readExitCode);

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lines(), Lines{});
}

TEST(childEnd, drawsAFreshNonceForTheNextAttempt) {
  SimOs sim;
  installTrial(sim, Runtime::crashing(9));

  EXPECT_EQ(sim.runLauncher(), 0);

  ASSERT_EQ(sim.starts().size(), 4U);
  for (std::size_t i = 0; i + 1 < sim.starts().size(); ++i) {
    const std::wstring& directory = sim.starts()[i].attemptDirectory;
    EXPECT_NE(directory, sim.starts()[i + 1].attemptDirectory);
    EXPECT_EQ(directory.size() - directory.rfind(L'\\'), 33U) << "a separator and 32 digits";
  }
}

TEST(childEnd, endsWhatTheRuntimeLeftBehindBeforeTheNextStart) {
  SimOs sim;
  installTrial(sim, Runtime().startsGrandchildAt(10).exitsAt(50, 9));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb", "bbbb", "aaaa"}));
  EXPECT_EQ(startTimes(sim), (Times{0, 250, 500, 750})) << "the machine fails a start beside an old tree";
  EXPECT_EQ(sim.livingProcesses(), 0);
}

TEST(childEnd, endsWhatTheRuntimeLeftBehindAtTheEndOfTheRun) {
  SimOs sim;
  sim.installSeed(Runtime().readyAt(1).startsGrandchildAt(10).exitsAt(1'000, 3));

  EXPECT_EQ(sim.runLauncher(), 3);

  EXPECT_EQ(sim.count(Call::terminateJob), 1);
  EXPECT_EQ(sim.livingProcesses(), 0);
}

// --- What cannot be waited for or ended ---

TEST(wait, thatFailsEndsTheRunWithOne) {
  SimOs sim;
  sim.installSeed(Runtime::healthy());
  sim.fail(Call::pollExit).from(sim.now() + 5'000);

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lines(), Lines{treeBox});
  EXPECT_EQ(boxTexts(sim), Lines{treeBox});
  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 5'000U);
  EXPECT_EQ(sim.started(), Names{"seed"}) << "no exit transition follows";
  EXPECT_EQ(sim.livingProcesses(), 0) << "the runtime goes with its job";
}

// A grandchild that no termination ends, and a runtime that leaves it behind.
Runtime leavingAnImmortal(std::uint64_t endsAt, std::uint32_t code, std::uint64_t lingersMs = sim::forever) {
  return Runtime()
      .readyAt(1)
      .doesAt(10,
              [lingersMs](sim::RunningRuntime& self) {
                const std::uint32_t pid = self.startGrandchild(sim::forever);
                self.sim().processes().find(pid)->survivesTermination = lingersMs;
              })
      .exitsAt(endsAt, code);
}

TEST(processTree, thatDoesNotEndIsReportedAfterThirtySecondsAndTheExitGoesOn) {
  SimOs sim;
  sim.installSeed(leavingAnImmortal(1'000, 7));

  EXPECT_EQ(sim.runLauncher(), 7) << "the runtime's own code";

  EXPECT_EQ(timesOfLine(sim, treeBox), Times{31'000});
  EXPECT_EQ(boxTexts(sim), Lines{treeBox});
  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 31'000U);
}

TEST(processTree, thatTakesAWhileToEndIsWaitedForSilently) {
  SimOs sim;
  sim.installSeed(leavingAnImmortal(1'000, 7, 20'000));

  EXPECT_EQ(sim.runLauncher(), 7);

  EXPECT_EQ(sim.lines(), Lines{});
  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 21'000U);
}

TEST(processTree, thatDoesNotEndKeepsTheNextRuntimeFromStarting) {
  SimOs sim;
  installTrial(sim, leavingAnImmortal(1'000, 9));

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.started(), Names{"bbbb"});
  EXPECT_EQ(sim.lines(), Lines{treeBox}) << "said once, though it failed twice";
  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 31'000U) << "the 30 s are not waited for again";
  EXPECT_EQ(sim.bootState()->attemptCount, 2U) << "the next attempt had been written";
}

TEST(timeOut, thatCannotEndTheTreeEndsTheRunWithoutAnExitTransition) {
  SimOs sim;
  installTrial(sim, Runtime::silent());
  sim.fail(Call::terminateJob);

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(timesOfLine(sim, treeBox), Times{120'000});
  EXPECT_EQ(boxTexts(sim), Lines{treeBox});
  EXPECT_EQ(sim.started(), Names{"bbbb"});
  EXPECT_EQ(sim.bootState()->attemptCount, 1U);
}

TEST(timeOut, ofATreeThatDoesNotEndTakesThirtySecondsMore) {
  SimOs sim;
  installTrial(sim, Runtime().survivesTermination(sim::forever));

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(timesOfLine(sim, treeBox), Times{150'000});
  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 150'000U);
}

// --- The guard of the promotion ---

// Lets something happen between the poll of the promoting tick and its write, which takes the state lock's second use.
void beforePromotion(SimOs& sim, std::function<void()> action) {
  sim.before(Call::openLock, L"state.lock", std::move(action), 1);
}

TEST(promotion, isNotWrittenForARuntimeThatDiesAtThatMoment) {
  SimOs sim;
  installTrial(sim, Runtime::silent());
  sim.install("bbbb", {Runtime().readyAt(100).healthyAt(500), Runtime::healthy()});
  beforePromotion(sim, [&] {
    sim.endRuntime(0);
    sim.after(100, [&] { EXPECT_EQ(sim.bootState()->active, "aaaa"); });
  });

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(startTimes(sim), (Times{0, 60'750})) << "a failure like any other, seen in the next tick";
  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb"}));
  EXPECT_EQ(timeOfState(sim, "\"active\":\"bbbb\""), 60'750U + 60'500U);
}

TEST(promotion, isNotWrittenForARuntimeThatDiedBeforeTheTick) {
  SimOs sim;
  installTrial(sim, Runtime::silent());
  sim.install("bbbb", {Runtime().readyAt(100).healthyAt(500).exitsAt(60'400, 0), Runtime::healthy()});

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(startTimes(sim), (Times{0, 60'500}));
  EXPECT_EQ(timeOfState(sim, "\"active\":\"bbbb\""), 60'500U + 60'500U);
}

TEST(promotion, thatCannotPollTheRuntimeEndsTheRunWithOne) {
  SimOs sim;
  installTrial(sim, Runtime().readyAt(100).healthyAt(500));
  beforePromotion(sim, [&] { sim.fail(Call::pollExit); });

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lines(), Lines{treeBox});
  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 60'500U);
  EXPECT_EQ(sim.bootState()->active, "aaaa");
}

TEST(promotion, canUseTheLastGenerationAndLeavesNoneForTheNextRun) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());
  BootState state = trialState();
  state.generation = ~std::uint64_t{0} - 1;
  sim.writeBootState(state);

  EXPECT_EQ(sim.runLauncher(), 0);
  EXPECT_EQ(sim.generation(), ~std::uint64_t{0});
  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lines(), Lines{"generation overflow"});
}

}  // namespace
}  // namespace launcher_stub
