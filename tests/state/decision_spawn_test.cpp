#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "decision_support.h"
#include "state/decision.h"

namespace launcher_stub {
namespace {

using namespace decision_support;

SpawnInput failedStart(const std::string& nextNonce = "nonce-0002") {
  SpawnInput input;
  input.started = false;
  input.nextNonce = nextNonce;
  input.now = 6'000;
  return input;
}

LauncherModel withoutCandidate(LauncherModel model) {
  model.state.candidate.reset();
  model.state.attemptCount = 0;
  return model;
}

TEST(decideSpawn, changesNothingAfterAStart) {
  for (const std::uint32_t kind : {0U, 1U, 2U, 3U}) {
    SCOPED_TRACE(kind);
    const LauncherModel model = runningModel(kind);
    SpawnInput input = failedStart();
    input.started = true;
    LauncherModel expected = model;
    expected.effects.clear();

    EXPECT_TRUE(sameModel(decideSpawn(model, input), expected));
  }
}

TEST(decideSpawn, doesNothingUnlessASlotIsSelected) {
  LauncherModel model = runningModel(kindActive);
  model.selected.reset();
  LauncherModel expected = model;
  expected.effects.clear();

  EXPECT_TRUE(sameModel(decideSpawn(model, failedStart()), expected));
}

TEST(decideSpawn, takesTheDurationsFromTheInput) {
  SpawnInput input = failedStart();
  input.started = true;
  input.durations.first = 11;
  input.durations.second = 12;

  const LauncherModel model = decideSpawn(runningModel(kindActive), input);

  EXPECT_EQ(model.firstDuration, 11U);
  EXPECT_EQ(model.secondDuration, 12U);
}

TEST(decideSpawn, startsACandidateAgainThatHasStartsLeft) {
  for (const std::uint32_t starts : {1U, 2U}) {
    SCOPED_TRACE(starts);
    LauncherModel model = runningModel(kindCandidate);
    model.state.attemptCount = starts;
    LauncherModel expected = model;
    expected.nextNonce = "nonce-0002";
    expected.state.attemptCount = starts + 1;
    expectChosen(expected, 0, "cccc");
    expected.effects = joined({writeOf(expected.state), attemptOf(0, "cccc", "nonce-0002", 6'000)});

    EXPECT_TRUE(sameModel(decideSpawn(model, failedStart()), expected));
  }
}

TEST(decideSpawn, rejectsACandidateAfterItsThirdStart) {
  LauncherModel model = runningModel(kindCandidate);
  model.state.attemptCount = 3;
  LauncherModel expected = model;
  expected.nextNonce = "nonce-0002";
  expected.failedThisRun = {"cccc"};
  expected.state.generation = 8;
  expected.state.rejected = {"eeee", "cccc"};
  expected.state.candidate.reset();
  expected.state.attemptCount = 0;
  expectChosen(expected, 1, "aaaa");
  expected.effects = joined({bumpingWriteOf(expected.state), attemptOf(1, "aaaa", "nonce-0002", 6'000)});

  EXPECT_TRUE(sameModel(decideSpawn(model, failedStart()), expected));
}

TEST(decideSpawn, startsTheCandidateLeftOverAfterAnotherKindFailed) {
  LauncherModel model = runningModel(kindActive);  // the candidate was not runnable when this one was chosen
  LauncherModel expected = model;
  expected.nextNonce = "nonce-0002";
  expected.failedThisRun = {"aaaa"};
  expected.state.attemptCount = 2;
  expectChosen(expected, 0, "cccc");
  expected.effects = joined({writeOf(expected.state), attemptOf(0, "cccc", "nonce-0002", 6'000)});

  EXPECT_TRUE(sameModel(decideSpawn(model, failedStart()), expected));
}

TEST(decideSpawn, fallsFromTheActiveOneToPreviousThenSeedThenEndsTheRun) {
  LauncherModel model = withoutCandidate(runningModel(kindActive));

  model = decideSpawn(model, failedStart("nonce-0002"));
  EXPECT_TRUE(sameEffects(model.effects, attemptOf(2, "bbbb", "nonce-0002", 6'000)));

  model = decideSpawn(model, failedStart("nonce-0003"));
  EXPECT_TRUE(sameEffects(model.effects, attemptOf(3, "seed", "nonce-0003", 6'000)));

  model = decideSpawn(model, failedStart("nonce-0004"));
  EXPECT_TRUE(sameEffects(model.effects, noRunnableRuntime()));
  EXPECT_EQ(model.failedThisRun, (SlotNames{"aaaa", "bbbb", "seed"}));
  EXPECT_EQ(model.nextNonce, "nonce-0004");
  EXPECT_FALSE(model.selected.has_value());

  const LauncherModel after = decideSpawn(model, failedStart("nonce-0005"));
  EXPECT_TRUE(after.effects.empty());
  EXPECT_EQ(after.nextNonce, "nonce-0004");
}

TEST(decideSpawn, triesEveryRunnableSlotInAWholeRunOfFailures) {
  BootState stored = storedState();
  stored.attemptCount = 0;
  LauncherModel model = decideStart(startFrom(stored));
  std::vector<std::pair<std::string, std::uint32_t>> starts;
  while (model.selected && starts.size() < 20) {
    starts.emplace_back(*model.selected, model.selectedKind);
    model = decideSpawn(model, failedStart());
  }

  EXPECT_EQ(starts, (std::vector<std::pair<std::string, std::uint32_t>>{
                        {"cccc", 0}, {"cccc", 0}, {"cccc", 0}, {"aaaa", 1}, {"bbbb", 2}, {"seed", 3}}));
  EXPECT_TRUE(sameEffects(model.effects, noRunnableRuntime()));
  EXPECT_EQ(model.state.rejected, (std::vector<std::string>{"eeee", "cccc"}));
}

TEST(decideSpawn, keepsReadyAndClearsTheOtherMarksOverAFallThrough) {
  LauncherModel model = withoutCandidate(runningModel(kindActive));
  model.settledMarkSeen = true;
  model.promotionMarkSeen = true;
  model.timeoutQueued = true;
  model.markTime = 42;
  LauncherModel expected = model;
  expected.nextNonce = "nonce-0002";
  expected.failedThisRun = {"aaaa"};
  expectChosen(expected, 2, "bbbb");
  expected.effects = attemptOf(2, "bbbb", "nonce-0002", 6'000);

  const LauncherModel after = decideSpawn(model, failedStart());

  EXPECT_TRUE(sameModel(after, expected));
  EXPECT_TRUE(after.settledMarkSeen);
}

TEST(decideSpawn, endsTheRunWhereARejectionOverflowsTheGeneration) {
  LauncherModel model = runningModel(kindCandidate);
  model.state.generation = lastGeneration;
  model.state.attemptCount = 3;

  EXPECT_TRUE(sameEffects(decideSpawn(model, failedStart()).effects, generationOverflow()));

  model.state.generation = lastGeneration - 1;
  const LauncherModel rejected = decideSpawn(model, failedStart());
  EXPECT_EQ(rejected.state.generation, lastGeneration);
  EXPECT_EQ(rejected.selected, "aaaa");
}

}  // namespace
}  // namespace launcher_stub
