// The durable phases of the commit: which files are written, in which order, and what a failed step leaves behind.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/slots/commit_support.h"

namespace launcher_stub {
namespace {

using namespace commit_support;
using sim::Call;
using Names = std::vector<std::wstring>;
using Order = std::vector<std::string>;

const std::wstring attemptRecordName = std::wstring(L"attempts\\") + attemptName + L"\\boot-v1.json";

void watchEverything(CallOrder& order) {
  order.watch(Call::replace, L"Root\\boot-v1.previous.json", "previous state")
      .watch(Call::replace, L"Root\\boot-v1.json", "state")
      .watch(Call::removeFile, L"pending-v1.json", "pending")
      .watch(Call::createPrivateDirectory, L"attempts\\*", "attempt directory")
      .watch(Call::replace, L"attempts\\*\\boot-v1.json", "attempt record")
      .watch(Call::showError, L"", "report")
      .watch(Call::startChild, L"", "start");
}

TEST(applyTransition, keepsItsPhasesWhateverTheOrderOfTheEffects) {
  Launch launch;
  CallOrder order(launch);
  watchEverything(order);

  EXPECT_TRUE(launch.apply(modelWith(
      {exitWith(9), startSlot(), reportOf("text"), beginAttempt(), clearPending(), savingWriteOf(newState())})));

  EXPECT_EQ(order.calls(), (Order{"previous state, locked", "state, locked", "attempt directory, locked",
                                  "attempt record, locked", "pending, locked", "start, unlocked", "report, unlocked"}))
      << launch.sim.trace();
  EXPECT_EQ(launch.context.exitCode, 9);
}

TEST(applyTransition, carriesOutEachPhaseInTheOrderOfTheList) {
  Launch launch;
  CallOrder order(launch);
  watchEverything(order);

  EXPECT_TRUE(launch.apply(modelWith({reportOf("text"), clearPending(), startSlot(), beginAttempt()})));

  EXPECT_EQ(order.calls(), (Order{"pending, locked", "attempt directory, locked", "attempt record, locked",
                                  "report, unlocked", "start, unlocked"}))
      << launch.sim.trace();
}

TEST(applyTransition, writesTheStateOfTheEffect) {
  Launch launch;

  EXPECT_TRUE(launch.apply(modelWith({writeOf(newState())})));

  EXPECT_EQ(launch.sim.bootState(), newState());
  EXPECT_EQ(launch.replaced(), (Names{L"boot-v1.json"}));
}

TEST(applyTransition, writesOnlyTheLastOfSeveralStates) {
  Launch launch;
  BootState early = newState();
  early.generation = 100;

  EXPECT_TRUE(launch.apply(modelWith({writeOf(early), clearPending(), writeOf(newState())})));

  EXPECT_EQ(launch.sim.bootState(), newState());
  EXPECT_EQ(launch.replaced(), (Names{L"boot-v1.json"}));
}

TEST(applyTransition, savesTheStateInForceWhenAnyWriteAsksForIt) {
  struct Case {
    const char* why;
    bool first, last, known, saved;
  };
  const Case cases[] = {
      {"nobody asks", false, false, true, false},
      {"the write that counts asks", false, true, true, true},
      {"only an earlier write asks", true, false, true, true},
      {"both ask", true, true, true, true},
      {"no valid state was read in this iteration", true, true, false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Launch launch;
    launch.context.keepsPrevious = c.known;
    BootState early = newState();
    early.generation = 100;

    EXPECT_TRUE(launch.apply(modelWith(
        {c.first ? savingWriteOf(early) : writeOf(early), c.last ? savingWriteOf(newState()) : writeOf(newState())})));

    EXPECT_EQ(launch.sim.previousState().has_value(), c.saved);
    if (c.saved) {
      EXPECT_EQ(launch.sim.previousState(), oldState());
    }
    EXPECT_EQ(launch.sim.bootState(), newState());
  }
}

TEST(applyTransition, savesTheStateThatWasCommittedLast) {
  Launch launch;
  LauncherModel first = modelWith({savingWriteOf(newState())});
  first.state = newState();
  BootState third = newState();
  third.generation = 9;
  ASSERT_TRUE(launch.apply(first));

  EXPECT_TRUE(launch.apply(modelWith({savingWriteOf(third)})));

  EXPECT_EQ(launch.sim.previousState(), newState());
  EXPECT_EQ(launch.sim.bootState(), third);
}

TEST(applyTransition, beginsAnAttemptInAPrivateDirectoryWithItsRecord) {
  Launch launch;
  CallOrder order(launch);
  watchEverything(order);

  EXPECT_TRUE(launch.apply(modelWith({beginAttempt()})));

  EXPECT_EQ(order.calls(), (Order{"attempt directory, locked", "attempt record, locked"}));
  EXPECT_EQ(launch.context.attemptDirectory, launch.sim.statePath(std::wstring(L"attempts\\") + attemptName));
  EXPECT_EQ(
      launch.sim.read(launch.attemptPath(L"boot-v1.json")),
      std::string("{\"nonce\":\"") + attemptNonce + "\",\"schemaVersion\":1,\"slot\":\"bbbb\",\"startedAt\":4711}");
}

TEST(applyTransition, deletesThePendingRequest) {
  Launch launch;

  EXPECT_TRUE(launch.apply(modelWith({clearPending()})));

  EXPECT_FALSE(launch.sim.exists(launch.sim.statePath(L"pending-v1.json")));
}

TEST(applyTransition, takesAPendingRequestThatIsGoneAlreadyAsDeleted) {
  Launch launch;
  launch.sim.remove(launch.sim.statePath(L"pending-v1.json"));

  EXPECT_TRUE(launch.apply(modelWith({clearPending(), beginAttempt()})));

  EXPECT_EQ(launch.replaced(), (Names{attemptRecordName}));
}

// Each durable step that can fail, in the order of a launch transition's steps.
struct FailingStep {
  const char* why;
  Call call;
  const wchar_t* pattern;
  Names replaced;      // what was on the disk by then, and stays
  bool pendingStands;  // the request has not been deleted yet
};

std::vector<FailingStep> failingSteps() {
  const Names none;
  const Names previous = {L"boot-v1.previous.json"};
  const Names both = {L"boot-v1.previous.json", L"boot-v1.json"};
  return {
      {"the lock is not to be had", Call::openLock, L"state.lock", none, true},
      {"the copy of the state in force", Call::replace, L"boot-v1.previous.json", none, true},
      {"the state", Call::replace, L"Root\\boot-v1.json", previous, true},
      {"the pending request", Call::removeFile, L"pending-v1.json", both, true},
      {"the attempt directory", Call::createPrivateDirectory, L"attempts\\*", both, false},
      {"the attempt record", Call::replace, L"attempts\\*\\boot-v1.json", both, false},
  };
}

LauncherModel launchModel() {
  LauncherModel model =
      modelWith({savingWriteOf(newState()), clearPending(), beginAttempt(), startSlot(), requestRelaunch()});
  model.state = newState();
  return model;
}

TEST(applyTransition, stopsAtTheFirstDurableStepThatFails) {
  for (const FailingStep& step : failingSteps()) {
    SCOPED_TRACE(step.why);
    Launch launch;
    launch.sim.fail(step.call, step.pattern);

    EXPECT_FALSE(launch.apply(launchModel())) << launch.sim.trace();

    EXPECT_EQ(launch.replaced(), step.replaced);
    EXPECT_EQ(launch.sim.exists(launch.sim.statePath(L"pending-v1.json")), step.pendingStands);
    EXPECT_EQ(launch.sim.count(Call::startChild), 0);
    EXPECT_EQ(launch.sim.lines(), Order{});
  }
}

TEST(applyTransition, takesNothingOverFromAFailedTransition) {
  for (const FailingStep& step : failingSteps()) {
    SCOPED_TRACE(step.why);
    Launch launch;
    launch.context.firstWriteFailureTime = 1234;
    const LauncherModel before = launch.context.model;
    launch.sim.fail(step.call, step.pattern);

    EXPECT_FALSE(launch.apply(launchModel()));

    EXPECT_EQ(launch.context.model, before);
    EXPECT_EQ(launch.context.attemptPhase, std::uint32_t{kindSeed});
    EXPECT_EQ(launch.context.firstWriteFailureTime, 1234u);
    EXPECT_FALSE(launch.context.startAttempted);
    EXPECT_FALSE(launch.context.relaunchRequested);
    EXPECT_FALSE(launch.context.exitRequested);
  }
}

TEST(applyTransition, completesWhenItIsRepeatedAfterAnyFailedStep) {
  for (const FailingStep& step : failingSteps()) {
    SCOPED_TRACE(step.why);
    Launch launch;
    launch.sim.fail(step.call, step.pattern).times(1);
    ASSERT_FALSE(launch.apply(launchModel()));

    EXPECT_TRUE(launch.apply(launchModel())) << launch.sim.trace();

    EXPECT_EQ(launch.sim.previousState(), oldState());
    EXPECT_EQ(launch.sim.bootState(), newState());
    EXPECT_FALSE(launch.sim.exists(launch.sim.statePath(L"pending-v1.json")));
    EXPECT_EQ(launch.sim.names(launch.sim.statePath(L"attempts")), Names{attemptName});
    EXPECT_EQ(launch.sim.names(launch.attemptPath(L"")), Names{L"boot-v1.json"});
    EXPECT_EQ(launch.sim.started(), Order{"bbbb"});
    EXPECT_TRUE(launch.context.relaunchRequested);
  }
}

TEST(applyTransition, failsOnAnAttemptDirectoryOfAnotherAccount) {
  Launch launch;
  launch.sim.makeDirectory(launch.attemptPath(L""));
  launch.sim.setOwner(launch.attemptPath(L""), sim::Owner::otherAccount);

  EXPECT_FALSE(launch.apply(modelWith({beginAttempt()})));

  EXPECT_EQ(launch.replaced(), Names{});
}

TEST(applyTransition, failsOnAnEffectWithoutItsRecord) {
  for (const EffectKind kind : {EffectKind::WriteBootState, EffectKind::BeginAttempt}) {
    SCOPED_TRACE(static_cast<int>(kind));
    Launch launch;
    TransitionEffect effect = effectOf(kind);
    effect.savePrevious = true;
    effect.attemptName = attemptName;

    EXPECT_FALSE(launch.apply(modelWith({effect})));

    EXPECT_EQ(launch.replaced(), Names{});
    EXPECT_EQ(launch.sim.names(launch.sim.statePath(L"attempts")), Names{});
  }
}

}  // namespace
}  // namespace launcher_stub
