// When the commit takes the state lock, what it does with one that it is given, and when it lets go.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/slots/commit_support.h"

namespace launcher_stub {
namespace {

using namespace commit_support;
using sim::Call;
using Order = std::vector<std::string>;

struct KindCase {
  const char* why;
  TransitionEffect effect;
  bool needsLock;
};

std::vector<KindCase> allKinds() {
  return {
      {"WriteBootState", writeOf(newState()), true},
      {"BeginAttempt", beginAttempt(), true},
      {"ClearPending", clearPending(), true},
      {"StartRuntime", startSlot(), false},
      {"EndRuntimeTree", endTree(), false},
      {"ReportError", reportOf("text"), false},
      {"Exit", exitWith(0), false},
      {"RequestRelaunch", requestRelaunch(), false},
  };
}

TEST(needsStateLock, holdsForTheThreeKindsThatWrite) {
  for (const KindCase& c : allKinds()) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(needsStateLock(modelWith({c.effect})), c.needsLock);
    EXPECT_EQ(needsStateLock(modelWith({exitWith(0), c.effect, reportOf("text")})), c.needsLock);
  }
  EXPECT_FALSE(needsStateLock(modelWith({})));
}

TEST(applyTransition, takesTheLockOnceForEachKindThatNeedsItAndReleasesIt) {
  for (const KindCase& c : allKinds()) {
    SCOPED_TRACE(c.why);
    Launch launch;
    const int before = launch.sim.count(Call::openLock);

    EXPECT_TRUE(launch.apply(modelWith({c.effect})));

    EXPECT_EQ(launch.sim.count(Call::openLock) - before, c.needsLock ? 1 : 0);
    EXPECT_FALSE(launch.holdsStateLock());
  }
}

TEST(applyTransition, withOnlyExitAndReportErrorWorksWhileAnotherProcessHoldsTheLock) {
  Launch launch;
  launch.sim.holdFile(launch.sim.statePath(L"state.lock"));

  EXPECT_TRUE(launch.apply(modelWith({reportOf("text"), exitWith(3)})));

  EXPECT_EQ(launch.sim.lines(), Order{"text"});
  EXPECT_EQ(launch.context.exitCode, 3);
  EXPECT_EQ(launch.sim.count(Call::openLock), 1) << "the lease is the only lock that was opened";
}

TEST(applyTransition, waitsFiveSecondsForALockThatAnotherProcessHolds) {
  Launch launch;
  launch.sim.holdFile(launch.sim.statePath(L"state.lock"));
  const std::uint64_t before = launch.sim.now();

  EXPECT_FALSE(launch.apply(modelWith({writeOf(newState()), exitWith(3)})));

  EXPECT_EQ(launch.sim.now() - before, 5'000u);
  EXPECT_EQ(launch.sim.bootState(), oldState());
  EXPECT_FALSE(launch.context.exitRequested);
}

TEST(applyTransition, goesOnWhenTheLockIsReleasedInTime) {
  Launch launch;
  launch.sim.holdFor(launch.sim.statePath(L"state.lock"), 4'900);

  EXPECT_TRUE(launch.apply(modelWith({writeOf(newState())})));

  EXPECT_EQ(launch.sim.bootState(), newState());
}

TEST(applyTransition, givesUpAtOnceOnALockThatCannotBeOpened) {
  Launch launch;
  launch.sim.fail(Call::openLock, L"state.lock");
  const std::uint64_t before = launch.sim.now();

  EXPECT_FALSE(launch.apply(modelWith({writeOf(newState())})));

  EXPECT_EQ(launch.sim.now(), before);
}

TEST(applyTransition, usesTheLockThatItIsGivenAndClosesIt) {
  Launch launch;
  os::LockFile held = launch.takeStateLock();
  const int before = launch.sim.count(Call::openLock);
  CallOrder order(launch);
  order.watch(Call::replace, L"Root\\boot-v1.json", "state").watch(Call::startChild, L"", "start");

  EXPECT_TRUE(applyTransition(launch.context, modelWith({writeOf(newState()), startSlot()}), &held, false));

  EXPECT_EQ(order.calls(), (Order{"state, locked", "start, unlocked"}));
  EXPECT_EQ(launch.sim.count(Call::openLock), before);
  EXPECT_EQ(held.handle, nullptr);
  EXPECT_FALSE(launch.holdsStateLock());
}

TEST(applyTransition, closesAGivenLockThatItDoesNotNeed) {
  Launch launch;
  os::LockFile held = launch.takeStateLock();
  CallOrder order(launch);
  order.watch(Call::startChild, L"", "start");

  EXPECT_TRUE(applyTransition(launch.context, modelWith({startSlot()}), &held, false));

  EXPECT_EQ(order.calls(), Order{"start, unlocked"});
  EXPECT_EQ(held.handle, nullptr);
  EXPECT_FALSE(launch.holdsStateLock());
}

TEST(applyTransition, takesTheLockItselfWhenItIsGivenOneWithoutAHandle) {
  Launch launch;
  os::LockFile closed;
  CallOrder order(launch);
  order.watch(Call::replace, L"Root\\boot-v1.json", "state");

  EXPECT_TRUE(applyTransition(launch.context, modelWith({writeOf(newState())}), &closed, false));

  EXPECT_EQ(order.calls(), Order{"state, locked"});
  EXPECT_EQ(closed.handle, nullptr);
  EXPECT_FALSE(launch.holdsStateLock());
}

TEST(applyTransition, canBeRepeatedWithTheLockThatItsFirstTryHasClosed) {
  Launch launch;
  os::LockFile held = launch.takeStateLock();
  launch.sim.fail(Call::replace, L"Root\\boot-v1.json").times(1);
  const LauncherModel model = modelWith({writeOf(newState())});
  ASSERT_FALSE(applyTransition(launch.context, model, &held, false));

  EXPECT_TRUE(applyTransition(launch.context, model, &held, false));

  EXPECT_EQ(launch.sim.bootState(), newState());
  EXPECT_FALSE(launch.holdsStateLock());
}

TEST(applyTransition, releasesTheLockOnEveryWayOut) {
  struct Case {
    const char* why;
    Call failing;
    const wchar_t* pattern;
    bool result;
  };
  const Case cases[] = {
      {"the copy of the state fails", Call::replace, L"boot-v1.previous.json", false},
      {"the state fails", Call::replace, L"Root\\boot-v1.json", false},
      {"the request cannot be deleted", Call::removeFile, L"pending-v1.json", false},
      {"the attempt directory fails", Call::createPrivateDirectory, L"attempts\\*", false},
      {"the attempt record fails", Call::replace, L"attempts\\*\\boot-v1.json", false},
      {"the wait on the child fails", Call::pollExit, L"", true},
      {"nothing fails", Call::random, L"nothing", true},
  };
  for (const Case& c : cases) {
    for (const bool given : {false, true}) {
      SCOPED_TRACE(std::string(c.why) + (given ? ", with a given lock" : ", with a lock of its own"));
      Launch launch;
      launch.start(sim::Runtime::silent());
      os::LockFile held;
      if (given) held = launch.takeStateLock();
      launch.sim.fail(c.failing, c.pattern);

      EXPECT_EQ(applyTransition(launch.context, modelWith({guardedWriteOf(newState()), clearPending(), beginAttempt()}),
                                given ? &held : nullptr, true),
                c.result);

      EXPECT_EQ(held.handle, nullptr);
      EXPECT_FALSE(launch.holdsStateLock());
    }
  }
}

}  // namespace
}  // namespace launcher_stub
