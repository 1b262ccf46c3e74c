// The effects that only touch the run itself, and what the context takes over from the model.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tests/slots/commit_support.h"

namespace launcher_stub {
namespace {

using namespace commit_support;
using Order = std::vector<std::string>;

TEST(reportEffect, showsItsMessage) {
  Launch launch;

  EXPECT_TRUE(launch.apply(modelWith({reportOf("No runnable runtime")})));

  EXPECT_EQ(launch.sim.lines(), Order{"No runnable runtime"});
  ASSERT_EQ(launch.sim.boxes().size(), 1u);
  EXPECT_EQ(launch.sim.boxes()[0].text, "No runnable runtime");
  EXPECT_TRUE(launch.context.errorReported);
}

TEST(reportEffect, isShownOnceInARun) {
  Launch launch;

  EXPECT_TRUE(launch.apply(modelWith({reportOf("first"), reportOf("second")})));
  EXPECT_TRUE(launch.apply(modelWith({reportOf("third")})));

  EXPECT_EQ(launch.sim.lines(), Order{"first"});
  EXPECT_EQ(launch.sim.boxes().size(), 1u);
}

TEST(reportEffect, withoutATextSaysNothing) {
  Launch launch;

  EXPECT_TRUE(launch.apply(modelWith({effectOf(EffectKind::ReportError), requestRelaunch()})));

  EXPECT_EQ(launch.sim.lines(), Order{});
  EXPECT_EQ(launch.sim.boxes().size(), 0u);
  EXPECT_FALSE(launch.context.errorReported) << "the run's one report is still to be had";
  EXPECT_TRUE(launch.context.relaunchRequested) << "what follows is carried out";
}

TEST(exitEffect, setsTheExitCodeAndRequestsTheExit) {
  struct Case {
    const char* why;
    std::int32_t code;
  };
  const Case cases[] = {
      {"success", 0},
      {"an error", 7},
      {"an access violation: 0xC0000005", -1073741819},
      {"the smallest", std::numeric_limits<std::int32_t>::min()},
      {"the largest", std::numeric_limits<std::int32_t>::max()},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Launch launch;

    EXPECT_TRUE(launch.apply(modelWith({exitWith(c.code)})));

    EXPECT_EQ(launch.context.exitCode, c.code);
    EXPECT_TRUE(launch.context.exitRequested);
    EXPECT_FALSE(launch.context.relaunchRequested);
  }
}

TEST(relaunchEffect, requestsTheRelaunchAndNoExit) {
  Launch launch;

  EXPECT_TRUE(launch.apply(modelWith({requestRelaunch()})));

  EXPECT_TRUE(launch.context.relaunchRequested);
  EXPECT_FALSE(launch.context.exitRequested);
  EXPECT_EQ(launch.context.exitCode, 1);
}

// Every field differs from a fresh model's.
LauncherModel filledModel() {
  LauncherModel model;
  model.state = newState();
  model.runnableSlots = {"aaaa", "bbbb"};
  model.seedRunnable = true;
  model.candidateTrialAllowed = true;
  model.nextNonce = "nonce-0002";
  model.selected = "bbbb";
  model.selectedKind = kindActive;
  model.startTime = 11;
  model.markTime = 12;
  model.firstDuration = 13;
  model.secondDuration = 14;
  model.promotionMarkSeen = true;
  model.settledMarkSeen = true;
  model.timeoutQueued = true;
  model.failedThisRun = {"cccc"};
  return model;
}

TEST(adoption, takesEveryFieldButTheEffects) {
  Launch launch;
  LauncherModel model = filledModel();
  model.effects = {requestRelaunch()};

  EXPECT_TRUE(launch.apply(model));

  EXPECT_EQ(launch.context.model, filledModel());
}

TEST(adoption, clearsWhatTheModelDoesNotHold) {
  Launch launch;
  launch.context.model = filledModel();

  EXPECT_TRUE(launch.apply(LauncherModel()));

  EXPECT_EQ(launch.context.model, LauncherModel());
  EXPECT_EQ(launch.context.model.selected, std::nullopt);
}

TEST(adoption, happensAlsoWhereNothingIsToBeDone) {
  Launch launch;

  EXPECT_TRUE(launch.applyOnTick(filledModel()));

  EXPECT_EQ(launch.context.model, filledModel());
  EXPECT_FALSE(launch.sim.exists(launch.sim.statePath(L"state.lock"))) << "the lock was never opened";
}

TEST(adoption, setsTheAttemptPhaseToTheSelectedKind) {
  for (const std::uint32_t kind : {kindCandidate, kindActive, kindPrevious, kindSeed}) {
    SCOPED_TRACE(kind);
    Launch launch;
    launch.context.attemptPhase = 99;
    LauncherModel model;
    model.selectedKind = kind;

    EXPECT_TRUE(launch.apply(model));

    EXPECT_EQ(launch.context.attemptPhase, kind);
  }
}

TEST(adoption, endsARunOfFailedWritesOnlyAfterAWrite) {
  struct Case {
    const char* why;
    TransitionEffect effect;
    std::uint64_t left;
  };
  const Case cases[] = {
      {"WriteBootState", writeOf(newState()), 0},
      {"BeginAttempt", beginAttempt(), 0},
      {"ClearPending", clearPending(), 0},
      {"StartRuntime", startSlot(), 1234},
      {"EndRuntimeTree", endTree(), 1234},
      {"ReportError", reportOf("text"), 1234},
      {"Exit", exitWith(0), 1234},
      {"RequestRelaunch", requestRelaunch(), 1234},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Launch launch;
    launch.context.firstWriteFailureTime = 1234;

    EXPECT_TRUE(launch.apply(modelWith({c.effect})));

    EXPECT_EQ(launch.context.firstWriteFailureTime, c.left);
  }
}

}  // namespace
}  // namespace launcher_stub
