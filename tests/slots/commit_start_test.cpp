// Starting the runtime and ending its process tree.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/slots/commit_support.h"

namespace launcher_stub {
namespace {

using namespace commit_support;
using sim::Call;
using sim::Runtime;
using Order = std::vector<std::string>;

constexpr const char* cannotEndTree = "cannot end runtime process tree";

TEST(startEffect, choosesTheSeedForNumberThreeAndASlotOtherwise) {
  struct Case {
    const char* why;
    std::int32_t number;
    std::wstring executable;
  };
  const std::wstring slot = L"C:\\Root\\slots\\bbbb\\entry-v1.exe";
  const Case cases[] = {
      {"candidate", 0, slot}, {"active", 1, slot},
      {"previous", 2, slot},  {"seed", 3, L"C:\\App\\seed\\entry-v1.exe"},
      {"beyond", 4, slot},    {"negative", -1, slot},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Launch launch;

    EXPECT_TRUE(launch.apply(modelWith({startOf(c.number, L"bbbb")})));

    ASSERT_EQ(launch.sim.starts().size(), 1u);
    EXPECT_EQ(launch.sim.starts()[0].executable, c.executable);
  }
}

TEST(startEffect, handsOverArgumentsDirectoriesAndTheLease) {
  Launch launch;

  EXPECT_TRUE(launch.apply(modelWith({beginAttempt(), startSlot()})));

  ASSERT_EQ(launch.sim.starts().size(), 1u);
  const sim::Start& start = launch.sim.starts()[0];
  EXPECT_EQ(start.arguments, (std::vector<std::wstring>{L"--open", L"a file.txt"}));
  EXPECT_EQ(start.stateRoot, L"C:\\Root");
  EXPECT_EQ(start.variable(L"QUORVEX_BOOT_INSTALL_DIR"), L"C:\\App");
  EXPECT_EQ(start.attemptDirectory, std::wstring(L"C:\\Root\\attempts\\") + attemptName);
  EXPECT_TRUE(start.leaseInherited);
}

TEST(startEffect, setsTheStartFlags) {
  Launch launch;

  EXPECT_TRUE(launch.apply(modelWith({startSlot()})));

  EXPECT_TRUE(launch.context.startAttempted);
  EXPECT_TRUE(launch.context.started);
  EXPECT_FALSE(startFailed(launch.context));
}

TEST(startEffect, forgetsHowTheLastRuntimeEnded) {
  Launch launch;
  recordChildExit(launch.context, 5, true);
  launch.context.child.waitFailed = true;

  EXPECT_TRUE(launch.apply(modelWith({startSlot()})));

  EXPECT_FALSE(launch.context.childExitSeen);
  EXPECT_EQ(launch.context.childExitCode, 0u);
  EXPECT_FALSE(launch.context.childExitClean);
  EXPECT_FALSE(launch.context.child.waitFailed);
}

TEST(startEffect, keepsTheRecordedEndWhereTheStartFails) {
  Launch launch;
  recordChildExit(launch.context, 5, false);
  launch.sim.fail(Call::createProcess);

  EXPECT_TRUE(launch.apply(modelWith({startSlot()})));

  EXPECT_TRUE(launch.context.childExitSeen);
  EXPECT_EQ(launch.context.childExitCode, 5u);
}

TEST(startEffect, endsWhatIsLeftOfTheLastRuntimeFirst) {
  struct Case {
    const char* why;
    Runtime last;
  };
  const Case cases[] = {
      {"it still runs", Runtime::silent()},
      {"it has left a child of its own", Runtime().startsGrandchildAt(10).exitsAt(20, 0)},
      {"it takes its time to end", Runtime().survivesTermination(1'200)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Launch launch;
    launch.start(c.last);
    launch.sim.advance(100);
    ASSERT_EQ(launch.sim.livingProcesses(), 1);
    int living = -1;
    launch.sim.before(Call::startChild, L"", [&] { living = launch.sim.livingProcesses(); });

    EXPECT_TRUE(launch.apply(modelWith({startOf(kindSeed, L"seed")})));

    EXPECT_EQ(living, 0) << launch.sim.trace();
    EXPECT_EQ(launch.sim.started(), (Order{"bbbb", "seed"}));
    EXPECT_EQ(launch.sim.livingProcesses(), 1);
    EXPECT_EQ(launch.sim.lines(), Order{});
  }
}

TEST(startEffect, endsNothingWhereNothingIsLeft) {
  Launch launch;
  launch.start(Runtime::crashing(1));
  launch.sim.advance(100);

  EXPECT_TRUE(launch.apply(modelWith({startOf(kindSeed, L"seed")})));

  EXPECT_EQ(launch.sim.count(Call::endProcessTree), 0);
  EXPECT_TRUE(launch.context.started);
}

TEST(startEffect, takesAJobThatCannotBeAskedForABusyOne) {
  Launch launch;
  launch.start(Runtime::silent());
  launch.sim.fail(Call::queryJob).times(1);

  EXPECT_TRUE(launch.apply(modelWith({startOf(kindSeed, L"seed")})));

  EXPECT_EQ(launch.sim.count(Call::endProcessTree), 1);
  EXPECT_EQ(launch.sim.started(), (Order{"bbbb", "seed"}));
  EXPECT_FALSE(launch.context.child.waitFailed);
}

TEST(startEffect, endsTheRunWhereTheLastRuntimeCannotBeEnded) {
  Launch launch;
  launch.start(Runtime().survivesTermination(sim::forever));
  launch.context.firstWriteFailureTime = 1234;
  LauncherModel model = modelWith({clearPending(), startOf(kindSeed, L"seed"), requestRelaunch(), exitWith(0)});
  model.state = newState();
  model.startTime = 77;

  EXPECT_TRUE(launch.apply(model));

  EXPECT_EQ(launch.sim.lines(), Order{cannotEndTree});
  EXPECT_EQ(launch.sim.boxes().size(), 1u);
  EXPECT_EQ(launch.sim.started(), Order{"bbbb"});
  EXPECT_FALSE(launch.context.startAttempted);
  EXPECT_EQ(launch.context.exitCode, 1);
  EXPECT_TRUE(launch.context.exitRequested);
  EXPECT_FALSE(launch.context.relaunchRequested) << "later effects are skipped";
  EXPECT_EQ(launch.context.model.state, newState()) << "what is on the disk is taken over all the same";
  EXPECT_EQ(launch.context.model.startTime, 77u) << "no child was created";
  EXPECT_EQ(launch.context.firstWriteFailureTime, 0u);
}

TEST(startEffect, closesTheHandlesOfTheLastRuntimeAlsoWhereTheStartFails) {
  Launch launch;
  launch.start(Runtime::crashing(1));
  launch.sim.advance(100);
  launch.context.child.endDeadline = 99;
  launch.sim.fail(Call::createProcess);

  EXPECT_TRUE(launch.apply(modelWith({startSlot()})));

  EXPECT_EQ(launch.context.child.process, nullptr);
  EXPECT_EQ(launch.context.child.job, nullptr);
  EXPECT_EQ(launch.context.child.endDeadline, 0u);
}

TEST(startEffect, thatFailsWritesTheReasonAndThenThePath) {
  struct Case {
    const char* why;
    Call failing;
    std::uint32_t code;
    const char* reason;
  };
  const std::string path = "C:\\Root\\slots\\bbbb\\entry-v1.exe";
  const std::string withCode = "cannot start " + path + ": Win32 error 5";
  const Case cases[] = {
      {"no process", Call::createProcess, 5, withCode.c_str()},
      {"no duplicate of the lease", Call::duplicateLease, 6, "cannot duplicate the launch lease: Win32 error 6"},
      {"no handle list", Call::buildHandleList, 8, "cannot build the handle list: Win32 error 8"},
      {"no job", Call::createJob, 5, "cannot create child job"},
      {"not in its job", Call::assignToJob, 5, "cannot create child job"},
      {"not resumed", Call::resumeThread, 5, "cannot create child job"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Launch launch;
    launch.sim.fail(c.failing, L"", c.code);

    EXPECT_TRUE(launch.apply(modelWith({startSlot()})));

    EXPECT_EQ(launch.sim.lines(), (Order{c.reason, "cannot start " + path}));
    EXPECT_EQ(launch.sim.boxes().size(), 0u);
    EXPECT_TRUE(startFailed(launch.context));
    EXPECT_EQ(launch.sim.livingProcesses(), 0);
  }
}

TEST(startEffect, namesAMissingSeedByItsOwnPath) {
  Launch launch;
  launch.sim.remove(launch.context.seedEntryPath);

  EXPECT_TRUE(launch.apply(modelWith({startOf(kindSeed, L"seed")})));

  EXPECT_EQ(launch.sim.lines(), (Order{"cannot start C:\\App\\seed\\entry-v1.exe: Win32 error 2",
                                       "cannot start C:\\App\\seed\\entry-v1.exe"}));
}

// U+0416 is in no western code page, U+00E9 is byte E9 there.
TEST(startEffect, writesThePathInUtf8AndThenInTheSystemCodePage) {
  Launch launch(300'000, L"C:\\\u0416\u00E9");
  launch.sim.fail(Call::createProcess);

  EXPECT_TRUE(launch.apply(modelWith({startSlot()})));

  EXPECT_EQ(launch.sim.lines(), (Order{"cannot start C:\\\xD0\x96\xC3\xA9\\slots\\bbbb\\entry-v1.exe: Win32 error 5",
                                       "cannot start C:\\?\xE9\\slots\\bbbb\\entry-v1.exe"}));
}

TEST(startEffect, thatFailsLetsTheFollowingEffectsBeCarriedOut) {
  Launch launch;
  launch.sim.fail(Call::createProcess);
  LauncherModel model = modelWith({startSlot(), reportOf("text"), requestRelaunch(), exitWith(4)});
  model.state = newState();

  EXPECT_TRUE(launch.apply(model));

  EXPECT_EQ(launch.sim.lineCount("text"), 1);
  EXPECT_TRUE(launch.context.relaunchRequested);
  EXPECT_EQ(launch.context.exitCode, 4);
  EXPECT_EQ(launch.context.model.state, newState());
}

TEST(startEffect, stampsTheTimeOfTheStartOnAnyClock) {
  struct Case {
    const char* why;
    std::uint64_t now;
  };
  const Case cases[] = {
      {"a machine just started", 1}, {"up for ten days", 864'000'000}, {"up for a century", 3'155'760'000'000}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Launch launch(c.now);
    launch.sim.after(1'000, [] {});
    launch.start(Runtime().survivesTermination(1'000));  // the next start comes later than its commit

    EXPECT_TRUE(launch.apply(modelWith({startOf(kindSeed, L"seed")})));

    ASSERT_EQ(launch.sim.starts().size(), 2u);
    EXPECT_GE(launch.context.model.startTime, c.now + 1'000);
    EXPECT_EQ(launch.context.model.startTime, launch.sim.starts()[1].time);
  }
}

TEST(startEffect, stampsNoTimeWhereTheStartFails) {
  Launch launch;
  launch.sim.fail(Call::createProcess);
  LauncherModel model = modelWith({startSlot()});
  model.startTime = 77;

  EXPECT_TRUE(launch.apply(model));

  EXPECT_EQ(launch.context.model.startTime, 77u);
}

TEST(applyTransition, keepsTheStartTimeOfTheModelWhereNothingIsToBeStarted) {
  Launch launch;
  ASSERT_TRUE(launch.apply(modelWith({startSlot()})));
  launch.sim.advance(500);
  LauncherModel tick = modelWith({clearPending()});
  tick.startTime = 77;

  EXPECT_TRUE(launch.applyOnTick(tick));

  EXPECT_TRUE(launch.context.started) << "left over from the commit that started";
  EXPECT_EQ(launch.context.model.startTime, 77u);
}

TEST(endTreeEffect, endsTheRuntimeAndAllThatItHasStarted) {
  Launch launch;
  launch.start(Runtime().startsGrandchildAt(10));
  launch.sim.advance(100);
  ASSERT_EQ(launch.sim.livingProcesses(), 2);

  EXPECT_TRUE(launch.applyOnTick(modelWith({endTree(), requestRelaunch()})));

  EXPECT_EQ(launch.sim.livingProcesses(), 0);
  EXPECT_TRUE(launch.context.relaunchRequested) << "later effects follow";
  EXPECT_FALSE(launch.context.exitRequested);
  EXPECT_FALSE(launch.context.childExitSeen) << "the next poll is to see it";
}

TEST(endTreeEffect, isDoneWhereThereIsNoRuntime) {
  Launch launch;

  EXPECT_TRUE(launch.apply(modelWith({endTree()})));

  EXPECT_EQ(launch.sim.lines(), Order{});
  EXPECT_FALSE(launch.context.exitRequested);
}

TEST(endTreeEffect, thatFailsEndsTheRun) {
  struct Case {
    const char* why;
    std::function<void(Launch&)> prepare;
  };
  const Case cases[] = {
      {"the job cannot be terminated", [](Launch& launch) { launch.sim.fail(Call::terminateJob); }},
      {"the job cannot be asked", [](Launch& launch) { launch.sim.fail(Call::queryJob); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Launch launch;
    launch.start(Runtime::silent());
    c.prepare(launch);
    launch.context.exitCode = 0;
    LauncherModel model = modelWith({endTree(), reportOf("text"), requestRelaunch(), exitWith(0)});
    model.state = newState();

    EXPECT_TRUE(launch.applyOnTick(model));

    EXPECT_EQ(launch.sim.lines(), Order{cannotEndTree});
    EXPECT_EQ(launch.context.exitCode, 1);
    EXPECT_TRUE(launch.context.exitRequested);
    EXPECT_FALSE(launch.context.relaunchRequested) << "later effects are skipped";
    EXPECT_EQ(launch.context.model.state, newState());
  }
}

TEST(endTreeEffect, thatFailsReportsOnlyWhereTheRunHasItsReportLeft) {
  Launch launch;
  launch.start(Runtime::silent());
  launch.sim.fail(Call::terminateJob);
  launch.context.errorReported = true;

  EXPECT_TRUE(launch.applyOnTick(modelWith({endTree()})));

  EXPECT_EQ(launch.sim.lines(), Order{});
  EXPECT_TRUE(launch.context.exitRequested);
}

}  // namespace
}  // namespace launcher_stub
