#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "decision_support.h"
#include "state/decision.h"

namespace launcher_stub {
namespace {

using namespace decision_support;

ExitInput exitOf(std::uint32_t exitCode) {
  ExitInput input;
  input.exitCode = exitCode;
  input.nextNonce = "nonce-0002";
  input.now = 8'000;
  return input;
}

// With a request that is valid for the attempt of `model`.
ExitInput restartOf(const LauncherModel& model) {
  ExitInput input = exitOf(7);
  input.restartPresent = true;
  RestartRequest request;
  request.slot = *model.selected;
  request.nonce = model.nextNonce;
  input.restart = request;
  return input;
}

LauncherModel settled(LauncherModel model) {
  model.settledMarkSeen = true;
  return model;
}

LauncherModel withoutCandidate(LauncherModel model) {
  model.state.candidate.reset();
  model.state.attemptCount = 0;
  return model;
}

// What is expected of a normal end: only the selection and the effects change.
LauncherModel ended(LauncherModel model, const Effects& effects) {
  model.selected.reset();
  model.effects = effects;
  return model;
}

TEST(decideExit, doesNothingUnlessASlotIsSelected) {
  LauncherModel model = settled(runningModel(kindActive));
  const ExitInput input = restartOf(model);
  model.selected.reset();
  LauncherModel expected = model;
  expected.effects.clear();

  EXPECT_TRUE(sameModel(decideExit(model, input), expected));
  EXPECT_TRUE(sameModel(decideExit(model, exitOf(5)), expected));
}

TEST(decideExit, takesTheDurationsFromTheInput) {
  ExitInput input = exitOf(0);
  input.durations.first = 11;
  input.durations.second = 12;

  const LauncherModel model = decideExit(settled(runningModel(kindActive)), input);

  EXPECT_EQ(model.firstDuration, 11U);
  EXPECT_EQ(model.secondDuration, 12U);
}

TEST(decideExit, endsTheRunWithTheCodeOfASettledRuntime) {
  struct Case {
    const char* why;
    std::uint32_t code;
    std::int32_t number;
  };
  const Case cases[] = {
      {"success", 0, 0},
      {"failure", 7, 7},
      {"largest positive", 0x7FFF'FFFF, 2'147'483'647},
      {"smallest negative", 0x8000'0000, -2'147'483'647 - 1},
      {"access violation: the same 32 bits", 0xC000'0005, -1'073'741'819},
      {"all bits", 0xFFFF'FFFF, -1},
  };
  for (const std::uint32_t kind : {1U, 2U, 3U}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.why);
      const LauncherModel model = settled(runningModel(kind));

      EXPECT_TRUE(sameModel(decideExit(model, exitOf(c.code)), ended(model, exitWith(c.number))));
    }
  }
}

TEST(decideExit, fallsThroughWhenAnotherKindEndsBeforeItIsReady) {
  struct Case {
    std::uint32_t kind;
    std::uint32_t nextKind;
    const char* next;
  };
  const Case cases[] = {{1, 2, "bbbb"}, {2, 1, "aaaa"}, {3, 1, "aaaa"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.kind);
    const LauncherModel model = withoutCandidate(runningModel(c.kind));
    LauncherModel expected = model;
    expected.nextNonce = "nonce-0002";
    expected.failedThisRun = {*model.selected};
    expectChosen(expected, c.nextKind, c.next);
    expected.effects = attemptOf(c.nextKind, c.next, "nonce-0002", 8'000);

    EXPECT_TRUE(sameModel(decideExit(model, exitOf(0)), expected));
  }
}

TEST(decideExit, retriesACandidateThatEndsWithoutARequest) {
  for (const std::uint32_t starts : {1U, 2U}) {
    for (const bool ready : {false, true}) {  // a candidate that settled still has not proved itself
      SCOPED_TRACE(starts);
      LauncherModel model = runningModel(kindCandidate);
      model.state.attemptCount = starts;
      model.settledMarkSeen = ready;
      model.promotionMarkSeen = ready;
      model.markTime = 42;
      LauncherModel expected = model;
      expected.nextNonce = "nonce-0002";
      expected.state.attemptCount = starts + 1;
      expectChosen(expected, 0, "cccc");
      expected.effects = joined({writeOf(expected.state), attemptOf(0, "cccc", "nonce-0002", 8'000)});

      EXPECT_TRUE(sameModel(decideExit(model, exitOf(0)), expected));
    }
  }
}

TEST(decideExit, rejectsACandidateThatEndsAtItsThirdStart) {
  LauncherModel model = settled(runningModel(kindCandidate));
  model.state.attemptCount = 3;
  LauncherModel expected = model;
  expected.nextNonce = "nonce-0002";
  expected.failedThisRun = {"cccc"};
  expected.state.generation = 8;
  expected.state.rejected = {"eeee", "cccc"};
  expected.state.candidate.reset();
  expected.state.attemptCount = 0;
  expectChosen(expected, 1, "aaaa");
  expected.effects = joined({bumpingWriteOf(expected.state), attemptOf(1, "aaaa", "nonce-0002", 8'000)});

  EXPECT_TRUE(sameModel(decideExit(model, exitOf(0)), expected));
}

TEST(decideExit, doesNotCountAStartThatTheCandidateAskedToRepeat) {
  struct Case {
    const char* why;
    std::uint32_t before;
    std::uint32_t after;
  };
  const Case cases[] = {
      {"never below zero", 0, 0}, {"first start", 1, 0}, {"second start", 2, 1}, {"third start", 3, 2}, {"odd", 4, 3}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    LauncherModel model = runningModel(kindCandidate);
    model.state.attemptCount = c.before;
    const ExitInput valid = restartOf(model);
    ExitInput invalid = valid;
    invalid.restart.reset();  // the file is there, but cannot be read
    LauncherModel expected = model;
    expected.state.attemptCount = c.after;

    EXPECT_TRUE(
        sameModel(decideExit(model, valid),
                  ended(expected, joined({writeOf(expected.state), plainEffect(EffectKind::RequestRelaunch)}))));
    EXPECT_TRUE(sameModel(decideExit(model, invalid), ended(expected, joined({writeOf(expected.state), exitWith(7)}))));
  }
}

TEST(decideExit, lowersTheCountEvenAtTheLastGeneration) {
  LauncherModel model = runningModel(kindCandidate);
  model.state.generation = lastGeneration;

  const LauncherModel after = decideExit(model, restartOf(model));

  EXPECT_TRUE(sameEffects(after.effects, joined({writeOf(after.state), plainEffect(EffectKind::RequestRelaunch)})));
}

TEST(decideExit, treatsAStoppedCandidateAsFailedWhateverItAskedFor) {
  LauncherModel model = runningModel(kindCandidate);
  model.timeoutQueued = true;
  LauncherModel expected = model;
  expected.nextNonce = "nonce-0002";
  expected.state.attemptCount = 2;
  expectChosen(expected, 0, "cccc");
  expected.effects = joined({writeOf(expected.state), attemptOf(0, "cccc", "nonce-0002", 8'000)});

  EXPECT_TRUE(sameModel(decideExit(model, restartOf(model)), expected));
  EXPECT_TRUE(sameModel(decideExit(model, exitOf(1)), expected));
}

TEST(decideExit, rejectsAStoppedCandidateAtItsThirdStartWhateverItAskedFor) {
  LauncherModel model = runningModel(kindCandidate);
  model.timeoutQueued = true;
  model.state.attemptCount = 3;

  const LauncherModel after = decideExit(model, restartOf(model));

  EXPECT_EQ(after.state.rejected, (std::vector<std::string>{"eeee", "cccc"}));
  EXPECT_EQ(after.selected, "aaaa");
}

TEST(decideExit, relaunchesOtherKindsOnRequestReadyOrNot) {
  for (const std::uint32_t kind : {1U, 2U, 3U}) {
    for (const bool ready : {false, true}) {
      SCOPED_TRACE(kind);
      LauncherModel model = runningModel(kind);
      model.settledMarkSeen = ready;

      EXPECT_TRUE(
          sameModel(decideExit(model, restartOf(model)), ended(model, plainEffect(EffectKind::RequestRelaunch))));
    }
  }
}

TEST(decideExit, countsAStoppedRuntimeOfAnotherKindAsFailedUnlessItWasReady) {
  for (const std::uint32_t kind : {1U, 2U, 3U}) {
    SCOPED_TRACE(kind);
    LauncherModel model = withoutCandidate(runningModel(kind));
    model.timeoutQueued = true;

    const LauncherModel failed = decideExit(model, restartOf(model));

    EXPECT_EQ(failed.failedThisRun, SlotNames{*model.selected});
    EXPECT_TRUE(sameModel(decideExit(settled(model), restartOf(model)),
                          ended(settled(model), plainEffect(EffectKind::RequestRelaunch))));
  }
}

struct RequestCase {
  const char* why;
  bool valid;
  std::function<void(ExitInput&, LauncherModel&)> change;
};

std::vector<RequestCase> requestCases() {
  return {
      {"all fits", true, [](ExitInput&, LauncherModel&) {}},
      {"present but not read", false, [](ExitInput& i, LauncherModel&) { i.restart.reset(); }},
      {"names another slot", false, [](ExitInput& i, LauncherModel&) { i.restart->slot = "dddd"; }},
      {"names another attempt", false, [](ExitInput& i, LauncherModel&) { i.restart->nonce = "nonce-0000"; }},
      {"names the next attempt", false, [](ExitInput& i, LauncherModel&) { i.restart->nonce = "nonce-0002"; }},
      {"a prefix of the nonce", false, [](ExitInput& i, LauncherModel&) { i.restart->nonce = "nonce-000"; }},
      {"id of the last request", true, [](ExitInput& i, LauncherModel&) { i.restart->requestId = "request-0001"; }},
      {"id of no request", false, [](ExitInput& i, LauncherModel&) { i.restart->requestId = "request-0009"; }},
      {"id of the pending request", true,
       [](ExitInput& i, LauncherModel&) {
         i.restart->requestId = "request-0009";
         i.extraRequestId = "request-0009";
       }},
      {"id of the last request beside a pending one", true,
       [](ExitInput& i, LauncherModel&) {
         i.restart->requestId = "request-0001";
         i.extraRequestId = "request-0009";
       }},
      {"id of neither", false,
       [](ExitInput& i, LauncherModel&) {
         i.restart->requestId = "request-0008";
         i.extraRequestId = "request-0009";
       }},
      {"an id where there is none to match", false,
       [](ExitInput& i, LauncherModel& m) {
         i.restart->requestId = "request-0001";
         m.state.lastRequestId.reset();
       }},
      {"no id beside a pending request", true, [](ExitInput& i, LauncherModel&) { i.extraRequestId = "request-0009"; }},
  };
}

TEST(decideExit, relaunchesForAValidRequestOnlyAndElseEndsTheRun) {
  for (const bool ready : {false, true}) {
    for (const RequestCase& c : requestCases()) {
      SCOPED_TRACE(c.why);
      LauncherModel model = runningModel(kindActive);
      model.settledMarkSeen = ready;  // a file that is there means a normal end, valid or not
      ExitInput input = restartOf(model);
      c.change(input, model);

      EXPECT_TRUE(sameModel(decideExit(model, input),
                            ended(model, c.valid ? plainEffect(EffectKind::RequestRelaunch) : exitWith(7))));
    }
  }
}

TEST(decideExit, judgesTheRequestOfACandidateByTheSameRules) {
  for (const RequestCase& c : requestCases()) {
    SCOPED_TRACE(c.why);
    LauncherModel model = runningModel(kindCandidate);
    ExitInput input = restartOf(model);
    c.change(input, model);
    LauncherModel expected = model;
    expected.state.attemptCount = 0;
    const Effects end = c.valid ? plainEffect(EffectKind::RequestRelaunch) : exitWith(7);

    EXPECT_TRUE(sameModel(decideExit(model, input), ended(expected, joined({writeOf(expected.state), end}))));
  }
}

TEST(decideExit, takesNoRequestFromAFileThatWasNotThere) {
  LauncherModel model = settled(runningModel(kindActive));
  ExitInput input = restartOf(model);
  input.restartPresent = false;

  EXPECT_TRUE(sameModel(decideExit(model, input), ended(model, exitWith(7))));

  model.settledMarkSeen = false;
  model = withoutCandidate(model);
  EXPECT_EQ(decideExit(model, input).selected, "bbbb");
}

TEST(decideExit, keepsReadyOverAFallThroughSoThatTheNextEndIsANormalOne) {
  LauncherModel model = settled(runningModel(kindCandidate));
  model.state.attemptCount = 3;

  const LauncherModel fallenBack = decideExit(model, exitOf(9));
  const LauncherModel after = decideExit(fallenBack, exitOf(5));

  EXPECT_EQ(fallenBack.selected, "aaaa");
  EXPECT_TRUE(fallenBack.settledMarkSeen);
  EXPECT_TRUE(sameEffects(after.effects, exitWith(5)));
}

TEST(decideExit, treatsAPromotedCandidateAsAnActiveOne) {
  LauncherModel model = runningModel(kindCandidate);
  model.promotionMarkSeen = true;
  TickInput tick;
  tick.now = 60'000;
  const LauncherModel promoted = decideTick(model, tick);
  ASSERT_EQ(promoted.selectedKind, 1U);

  EXPECT_TRUE(sameModel(decideExit(settled(promoted), exitOf(0)), ended(settled(promoted), exitWith(0))));

  const LauncherModel fallenBack = decideExit(promoted, exitOf(0));
  EXPECT_EQ(fallenBack.failedThisRun, SlotNames{"cccc"});
  EXPECT_EQ(fallenBack.selected, "aaaa");
  EXPECT_EQ(fallenBack.selectedKind, 2U);
}

TEST(decideExit, fallsFromTheActiveOneToPreviousThenSeedThenEndsTheRun) {
  LauncherModel model = withoutCandidate(runningModel(kindActive));
  std::vector<std::string> next;
  while (model.selected && next.size() < 10) {
    model = decideExit(model, exitOf(3));
    if (model.selected) next.push_back(*model.selected);
  }

  EXPECT_EQ(next, (std::vector<std::string>{"bbbb", "seed"}));
  EXPECT_TRUE(sameEffects(model.effects, noRunnableRuntime()));  // and not the child's code
}

TEST(decideExit, endsTheRunWhereARejectionOverflowsTheGeneration) {
  LauncherModel model = runningModel(kindCandidate);
  model.state.generation = lastGeneration;
  model.state.attemptCount = 3;

  EXPECT_TRUE(sameEffects(decideExit(model, exitOf(3)).effects, generationOverflow()));

  model.state.generation = lastGeneration - 1;
  EXPECT_EQ(decideExit(model, exitOf(3)).selected, "aaaa");
}

}  // namespace
}  // namespace launcher_stub
