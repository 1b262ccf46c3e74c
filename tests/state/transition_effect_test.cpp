#include "state/transition_effect.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <variant>

#include "state/launcher_model.h"

namespace launcher_stub {
namespace {

TEST(transitionEffect, kindsHaveTheirFixedValues) {
  struct Case {
    const char* why;
    EffectKind kind;
    std::uint32_t value;
  };
  const Case cases[] = {
      {"WriteBootState", EffectKind::WriteBootState, 0},
      {"BeginAttempt", EffectKind::BeginAttempt, 1},
      {"StartRuntime", EffectKind::StartRuntime, 2},
      {"EndRuntimeTree", EffectKind::EndRuntimeTree, 3},
      {"ClearPending", EffectKind::ClearPending, 4},
      {"ReportError", EffectKind::ReportError, 5},
      {"Exit", EffectKind::Exit, 6},
      {"RequestRelaunch", EffectKind::RequestRelaunch, 7},
  };
  for (const Case& c : cases) EXPECT_EQ(static_cast<std::uint32_t>(c.kind), c.value) << c.why;
}

TEST(transitionEffect, carriesNothingWhenNew) {
  const TransitionEffect effect;

  EXPECT_EQ(effect.number, 0);
  EXPECT_TRUE(effect.slot.empty());
  EXPECT_TRUE(effect.attemptName.empty());
  EXPECT_TRUE(std::holds_alternative<std::monostate>(effect.record));
  EXPECT_FALSE(effect.requireRunning);
  EXPECT_FALSE(effect.savePrevious);
}

TEST(transitionEffect, isEqualOnlyWhenEveryFieldIs) {
  struct Case {
    const char* why;
    std::function<void(TransitionEffect&)> change;
  };
  const Case cases[] = {
      {"number", [](TransitionEffect& e) { e.number = 1; }},
      {"slot", [](TransitionEffect& e) { e.slot = L"aaaa"; }},
      {"attempt name", [](TransitionEffect& e) { e.attemptName = L"nonce-0001"; }},
      {"record", [](TransitionEffect& e) { e.record = BootState(); }},
      {"kind of record", [](TransitionEffect& e) { e.record = AttemptRecord(); }},
      {"message", [](TransitionEffect& e) { e.record = std::string("text"); }},
      {"requireRunning", [](TransitionEffect& e) { e.requireRunning = true; }},
      {"savePrevious", [](TransitionEffect& e) { e.savePrevious = true; }},
      {"kind", [](TransitionEffect& e) { e.kind = EffectKind::Exit; }},
  };
  EXPECT_TRUE(TransitionEffect() == TransitionEffect());
  for (const Case& c : cases) {
    TransitionEffect changed;
    c.change(changed);

    EXPECT_FALSE(changed == TransitionEffect()) << c.why;
  }
}

TEST(runtimeKind, hasItsFixedValues) {
  EXPECT_EQ(static_cast<std::uint32_t>(kindCandidate), 0U);
  EXPECT_EQ(static_cast<std::uint32_t>(kindActive), 1U);
  EXPECT_EQ(static_cast<std::uint32_t>(kindPrevious), 2U);
  EXPECT_EQ(static_cast<std::uint32_t>(kindSeed), 3U);
}

TEST(launcherModel, hasItsDefaultsWhenFresh) {
  const LauncherModel model;

  EXPECT_EQ(model.state, BootState());
  EXPECT_FALSE(model.selected.has_value());
  EXPECT_EQ(model.selectedKind, 3U);
  EXPECT_EQ(model.firstDuration, 120'000U);
  EXPECT_EQ(model.secondDuration, 60'000U);
  EXPECT_EQ(model.startTime, 0U);
  EXPECT_EQ(model.markTime, 0U);
  EXPECT_FALSE(model.seedRunnable || model.candidateTrialAllowed);
  EXPECT_FALSE(model.promotionMarkSeen || model.settledMarkSeen || model.timeoutQueued);
  EXPECT_TRUE(model.runnableSlots.empty() && model.failedThisRun.empty());
  EXPECT_TRUE(model.nextNonce.empty() && model.effects.empty());
}

}  // namespace
}  // namespace launcher_stub
