// The look at the child right before a write that is only good for a running runtime.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/slots/commit_support.h"

namespace launcher_stub {
namespace {

using namespace commit_support;
using sim::Call;
using sim::Runtime;
using Order = std::vector<std::string>;

LauncherModel promotion() {
  LauncherModel model = modelWith({guardedWriteOf(newState()), clearPending(), requestRelaunch()});
  model.state = newState();
  return model;
}

void expectNothingDone(Launch& launch) {
  EXPECT_TRUE(launch.sim.replacements().empty());
  EXPECT_EQ(launch.sim.bootState(), oldState());
  EXPECT_TRUE(launch.sim.exists(launch.sim.statePath(L"pending-v1.json")));
  EXPECT_FALSE(launch.context.relaunchRequested);
  EXPECT_NE(launch.context.model.state, newState()) << "nothing is taken over";
  EXPECT_EQ(launch.context.firstWriteFailureTime, 1234u) << "no write has succeeded";
  EXPECT_FALSE(launch.holdsStateLock());
}

TEST(guardedWrite, isMadeWhileTheRuntimeRuns) {
  Launch launch;
  launch.start(Runtime::silent());

  EXPECT_TRUE(launch.applyOnTick(promotion()));

  EXPECT_EQ(launch.sim.count(Call::pollExit), 1);
  EXPECT_EQ(launch.sim.bootState(), newState());
  EXPECT_EQ(launch.context.model.state, newState());
  EXPECT_FALSE(launch.context.childExitSeen);
  EXPECT_TRUE(launch.context.relaunchRequested);
}

TEST(guardedWrite, looksAtTheChildUnderTheLockRightBeforeTheFirstWrite) {
  Launch launch;
  launch.start(Runtime::silent());
  CallOrder order(launch);
  order.watch(Call::pollExit, L"", "look")
      .watch(Call::replace, L"boot-v1.previous.json", "previous state")
      .watch(Call::replace, L"Root\\boot-v1.json", "state");

  EXPECT_TRUE(launch.applyOnTick(promotion()));

  EXPECT_EQ(order.calls(), (Order{"look, locked", "previous state, locked", "state, locked"}));
}

TEST(guardedWrite, isOvertakenByTheEndOfTheRuntime) {
  struct Case {
    const char* why;
    std::uint32_t code;
    bool clean;
  };
  const Case cases[] = {
      {"a clean end", 0, true}, {"an error code", 7, false}, {"an access violation", 0xC0000005, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Launch launch;
    launch.start(Runtime::crashing(c.code));
    launch.sim.advance(50);
    launch.context.firstWriteFailureTime = 1234;

    EXPECT_TRUE(launch.applyOnTick(promotion()));

    expectNothingDone(launch);
    EXPECT_TRUE(launch.context.childExitSeen);
    EXPECT_EQ(launch.context.childExitCode, c.code);
    EXPECT_EQ(launch.context.childExitClean, c.clean);
    EXPECT_FALSE(launch.context.exitRequested);
    EXPECT_EQ(launch.sim.lines(), Order{});
  }
}

TEST(guardedWrite, isOvertakenByAnEndThatWasRecordedEarlier) {
  Launch launch;
  launch.start(Runtime::crashing(7));
  launch.sim.advance(50);
  std::uint32_t code = 0;
  bool clean = true;
  ASSERT_TRUE(os::pollExit(launch.context.child, code, clean));
  recordChildExit(launch.context, code, clean);
  launch.context.firstWriteFailureTime = 1234;

  EXPECT_TRUE(launch.applyOnTick(promotion()));

  expectNothingDone(launch);
  EXPECT_TRUE(launch.context.childExitSeen);
  EXPECT_EQ(launch.context.childExitCode, 7u);
  EXPECT_FALSE(launch.context.childExitClean);
}

TEST(guardedWrite, endsTheRunWhenTheWaitOnTheChildFails) {
  Launch launch;
  launch.start(Runtime::silent());
  launch.sim.fail(Call::pollExit);
  launch.context.firstWriteFailureTime = 1234;
  launch.context.exitCode = 0;
  CallOrder order(launch);
  order.watch(Call::showError, L"", "report");

  EXPECT_TRUE(launch.applyOnTick(promotion()));

  expectNothingDone(launch);
  EXPECT_EQ(order.calls(), Order{"report, unlocked"});
  EXPECT_EQ(launch.sim.lines(), Order{"cannot end runtime process tree"});
  EXPECT_EQ(launch.context.exitCode, 1);
  EXPECT_TRUE(launch.context.exitRequested);
  EXPECT_TRUE(launch.context.errorReported);
  EXPECT_FALSE(launch.context.childExitSeen);
}

TEST(guardedWrite, reportsAFailedWaitOnlyWhereTheRunHasItsReportLeft) {
  Launch launch;
  launch.start(Runtime::silent());
  launch.sim.fail(Call::pollExit);
  launch.context.errorReported = true;

  EXPECT_TRUE(launch.applyOnTick(promotion()));

  EXPECT_EQ(launch.sim.lines(), Order{});
  EXPECT_EQ(launch.sim.boxes().size(), 0u);
  EXPECT_TRUE(launch.context.exitRequested);
}

TEST(guardedWrite, needsBothTheTickAndTheEffectToAskForIt) {
  struct Case {
    const char* why;
    LauncherModel model;
    bool onTick;
    bool written;
  };
  const Case cases[] = {
      {"an exit transition does not look", modelWith({guardedWriteOf(newState())}), false, true},
      {"a write for any runtime does not look", modelWith({savingWriteOf(newState())}), true, true},
      {"the last write counts", modelWith({guardedWriteOf(oldState()), savingWriteOf(newState())}), true, true},
      {"the last write counts, and asks", modelWith({savingWriteOf(oldState()), guardedWriteOf(newState())}), true,
       false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Launch launch;
    launch.start(Runtime::crashing(7));
    launch.sim.advance(50);

    EXPECT_TRUE(applyTransition(launch.context, c.model, nullptr, c.onTick));

    EXPECT_EQ(launch.sim.bootState(), c.written ? newState() : oldState());
    EXPECT_EQ(launch.sim.count(Call::pollExit), c.written ? 0 : 1);
    EXPECT_EQ(launch.context.childExitSeen, !c.written);
  }
}

TEST(guardedWrite, isNotLookedForWhereNoStateIsWritten) {
  Launch launch;
  launch.start(Runtime::crashing(7));
  launch.sim.advance(50);
  TransitionEffect pending = clearPending();
  pending.requireRunning = true;

  EXPECT_TRUE(launch.applyOnTick(modelWith({pending})));

  EXPECT_EQ(launch.sim.count(Call::pollExit), 0);
  EXPECT_FALSE(launch.sim.exists(launch.sim.statePath(L"pending-v1.json")));
}

}  // namespace
}  // namespace launcher_stub
