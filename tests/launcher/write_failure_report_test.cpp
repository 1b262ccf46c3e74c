// How a long run of failed writes becomes one error box.
#include <gtest/gtest.h>

#include "launcher/transitions.h"
#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

const std::string writeFailureBox = "cannot write launcher state";
const std::string treeBox = "cannot end runtime process tree";

TEST(noteWriteFailure, reportsFromThirtySecondsOn) {
  SimOs sim;
  LaunchContext context;

  noteWriteFailure(context);
  EXPECT_EQ(context.firstWriteFailureTime, sim.now());
  sim.advance(29'999);
  noteWriteFailure(context);
  EXPECT_EQ(sim.lines(), Lines{});
  sim.advance(1);
  noteWriteFailure(context);
  EXPECT_EQ(sim.lines(), Lines{writeFailureBox});
}

TEST(noteWriteFailure, reportsOnceAndNeverEndsTheRun) {
  SimOs sim;
  LaunchContext context;
  context.firstWriteFailureTime = sim.now() - 60'000;

  noteWriteFailure(context);
  noteWriteFailure(context);

  EXPECT_EQ(sim.lines(), Lines{writeFailureBox});
  EXPECT_EQ(boxTexts(sim), Lines{writeFailureBox});
  EXPECT_EQ(context.firstWriteFailureTime, sim.now() - 60'000);
  EXPECT_FALSE(context.exitRequested);
}

TEST(noteWriteFailure, leavesNoTraceWhereTheRunHasReportedAlready) {
  SimOs sim;
  LaunchContext context;
  context.errorReported = true;
  context.firstWriteFailureTime = sim.now() - 60'000;

  noteWriteFailure(context);

  EXPECT_EQ(sim.lines(), Lines{});
}

TEST(writeFailures, acrossTransitionsShowOneBoxThirtySecondsAfterTheFirst) {
  SimOs sim;
  // The tick's write fails from 60500 on, the exit's from 70000 on.
  installTrial(sim, Runtime().readyAt(100).healthyAt(500).exitsAt(70'000, 9));
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).skip(1);

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(timesOfLine(sim, writeFailureBox), Times{90'500});
  EXPECT_EQ(timesOfLine(sim, "exit transition write failed for 30 seconds; exiting"), Times{100'000});
  EXPECT_EQ(boxTexts(sim), Lines{writeFailureBox});
}

TEST(writeFailures, areForgottenWhenAWriteSucceeds) {
  SimOs sim;
  installTrial(sim, Runtime::crashing(9));
  // 20 s of failures before the launch, and another 20 s after the first crash.
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).times(80);
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).skip(1).times(80);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(startTimes(sim), (Times{20'000, 40'250, 40'500, 40'750}));
  EXPECT_EQ(boxTexts(sim), Lines{});
}

TEST(report, ofWritesIsSpentByAReportOfTheProcessTree) {
  SimOs sim;
  installTrial(sim, Runtime::crashing(9));
  sim.fail(Call::terminateJob).times(1);
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).skip(1);

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lines(), (Lines{treeBox, "exit transition write failed; retrying",
                                "exit transition write failed for 30 seconds; exiting"}));
  EXPECT_EQ(boxTexts(sim), Lines{treeBox});
}

TEST(report, ofTheProcessTreeIsSpentByAReportOfWrites) {
  SimOs sim;
  installTrial(sim, Runtime().readyAt(100).healthyAt(500).exitsAt(95'000, 9));
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json")).skip(1);
  sim.fail(Call::terminateJob);

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lineCount(writeFailureBox), 1);
  EXPECT_EQ(sim.lineCount(treeBox), 0);
}

TEST(report, thatNoRuntimeIsLeftIsSpentAsWell) {
  SimOs sim;
  sim.installSeed(Runtime::crashing(9));
  sim.fail(Call::terminateJob).times(1);

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lines(), Lines{treeBox});
  EXPECT_EQ(boxTexts(sim), Lines{treeBox});
}

TEST(report, canBeShownAgainInTheNextRun) {
  SimOs sim;
  sim.fail(Call::replace, sim.statePath(L"boot-v1.json"));

  EXPECT_EQ(sim.runLauncher(), 1);
  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(boxTexts(sim), (Lines{writeFailureBox, writeFailureBox}));
}

}  // namespace
}  // namespace launcher_stub
