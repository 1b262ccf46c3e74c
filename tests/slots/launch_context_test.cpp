#include "slots/launch_context.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/slots/commit_support.h"

namespace launcher_stub {
namespace {

using Order = std::vector<std::string>;

TEST(launchContext, beginsWithExitCodeOneAndNothingKnown) {
  const sim::SimOs sim;
  const LaunchContext context;

  EXPECT_EQ(context.exitCode, 1);
  EXPECT_EQ(context.attemptPhase, 3u);
  EXPECT_EQ(context.firstDuration, 120'000u);
  EXPECT_EQ(context.secondDuration, 60'000u);
  EXPECT_EQ(context.firstWriteFailureTime, 0u);
  EXPECT_FALSE(context.startAttempted || context.started || context.exitRequested || context.relaunchRequested);
  EXPECT_FALSE(context.childExitSeen || context.childExitClean || context.keepsPrevious || context.errorReported);
  EXPECT_EQ(context.model, LauncherModel());
}

// Where the given text stands last in the trace.
std::size_t lastIn(const std::string& trace, const std::string& text) { return trace.rfind(text); }

TEST(launchContext, endsTheRuntimeBeforeItLetsGoOfTheLocks) {
  sim::SimOs sim;
  sim.install("bbbb", sim::Runtime::silent());
  auto context = std::make_unique<LaunchContext>();
  ASSERT_TRUE(os::openLockFile(context->launchLease, sim.statePath(L"launch.lock"), os::LockWait::none));
  ASSERT_TRUE(os::openLockFile(context->stateLock, sim.statePath(L"other.lock"), os::LockWait::none));
  context->stateRoot = sim.stateRoot();
  ASSERT_TRUE(applyTransition(*context, commit_support::modelWith({commit_support::startSlot()}), nullptr, false));
  // A repeated line of the trace is only counted where it stood first, so the earlier ones must be far enough away.
  for (int i = 0; i < 20; ++i) sim.note("test", {}, std::to_string(i));

  context.reset();

  const std::string trace = sim.trace();
  EXPECT_EQ(sim.livingProcesses(), 0);
  EXPECT_GT(lastIn(trace, "process ends"), lastIn(trace, "test: 19")) << trace;
  EXPECT_LT(lastIn(trace, "process ends"), lastIn(trace, "other.lock\n")) << trace;
  EXPECT_LT(lastIn(trace, "close handle c:\\users\\u\\appdata\\local\\quorvex\\tessellary\\native\\other.lock"),
            lastIn(trace, "close handle c:\\users\\u\\appdata\\local\\quorvex\\tessellary\\native\\launch.lock"))
      << trace;
}

TEST(reportOnce, showsTheFirstMessageAndLeavesNoTraceOfTheSecond) {
  const sim::SimOs sim;
  LaunchContext context;

  reportOnce(context, "first");
  reportOnce(context, "second");

  EXPECT_EQ(sim.lines(), Order{"first"});
  ASSERT_EQ(sim.boxes().size(), 1u);
  EXPECT_EQ(sim.boxes()[0].text, "first");
  EXPECT_TRUE(context.errorReported);
}

TEST(reportOnce, isOncePerRunAndNotPerProcess) {
  const sim::SimOs sim;
  LaunchContext first;
  LaunchContext second;

  reportOnce(first, "first");
  reportOnce(second, "second");

  EXPECT_EQ(sim.lines(), (Order{"first", "second"}));
  EXPECT_EQ(sim.boxes().size(), 1u) << "the box is the process's";
}

TEST(reportOnce, doesNothingAtAllWhereTheReportWasUsed) {
  const sim::SimOs sim;
  LaunchContext context;
  context.errorReported = true;

  reportOnce(context, "text");

  EXPECT_EQ(sim.lines(), Order{});
  EXPECT_EQ(sim.boxes().size(), 0u);
}

TEST(startFailed, holdsForAStartThatWasTriedInVain) {
  struct Case {
    const char* why;
    bool attempted, started, failed;
  };
  const Case cases[] = {
      {"no start was due", false, false, false},
      {"tried in vain", true, false, true},
      {"came about", true, true, false},
      {"left over from an earlier commit", false, true, false},
  };
  const sim::SimOs sim;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    LaunchContext context;
    context.startAttempted = c.attempted;
    context.started = c.started;

    EXPECT_EQ(startFailed(context), c.failed);

    clearStartFlags(context);
    EXPECT_FALSE(context.startAttempted);
    EXPECT_FALSE(context.started);
    EXPECT_FALSE(startFailed(context));
  }
}

TEST(recordChildExit, keepsWhatWasObserved) {
  const sim::SimOs sim;
  LaunchContext context;

  recordChildExit(context, 0xC0000005, false);

  EXPECT_TRUE(context.childExitSeen);
  EXPECT_EQ(context.childExitCode, 0xC0000005u);
  EXPECT_FALSE(context.childExitClean);
  recordChildExit(context, 0, true);
  EXPECT_EQ(context.childExitCode, 0u);
  EXPECT_TRUE(context.childExitClean);
}

}  // namespace
}  // namespace launcher_stub
