#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "decision_support.h"
#include "state/decision.h"

namespace launcher_stub {
namespace {

using namespace decision_support;

// What a start input gives a fresh model before anything is decided.
LauncherModel freshModel(const StartInput& input, const BootState& state) {
  LauncherModel model;
  model.state = state;
  model.runnableSlots = input.runnableSlots;
  model.seedRunnable = input.seedRunnable;
  model.candidateTrialAllowed = input.candidateTrialAllowed;
  model.nextNonce = input.nextNonce;
  return model;
}

BootState withoutCandidate(std::uint64_t generation) {
  BootState state = storedState();
  state.generation = generation;
  state.candidate.reset();
  state.attemptCount = 0;
  return state;
}

BootState rejectedCandidate(BootState state) {
  state.rejected.push_back(*state.candidate);
  state.candidate.reset();
  state.attemptCount = 0;
  ++state.generation;
  return state;
}

BootState takenIn(BootState state, const PendingRequest& request) {
  state.candidate = request.candidate;
  state.lastRequestId = request.requestId;
  state.attemptCount = 0;
  ++state.generation;
  return state;
}

BootState started(BootState state) {
  ++state.attemptCount;
  return state;
}

TEST(decideStart, goesOnFromThePrimaryStateWithoutWritingIt) {
  StartInput input = startFrom(withoutCandidate(7));
  input.backup = withoutCandidate(99);
  input.generationFloor = 500;
  input.primary->recovered = true;  // set by an earlier run, kept as it is
  LauncherModel expected = freshModel(input, *input.primary);
  expectChosen(expected, 1, "aaaa");
  expected.effects = attemptOf(1, "aaaa", "nonce-0001", 5'000);

  EXPECT_TRUE(sameModel(decideStart(input), expected));
}

TEST(decideStart, copiesWhatTheInputSays) {
  StartInput input;
  input.primary = withoutCandidate(7);
  input.runnableSlots = {"bbbb"};
  input.nextNonce = "nonce-0009";
  input.durations.first = 11;
  input.durations.second = 12;
  LauncherModel expected = freshModel(input, *input.primary);
  expected.firstDuration = 11;
  expected.secondDuration = 12;
  expectChosen(expected, 2, "bbbb");
  expected.effects = attemptOf(2, "bbbb", "nonce-0009", 0);

  EXPECT_TRUE(sameModel(decideStart(input), expected));

  input.seedRunnable = true;
  expected.seedRunnable = true;
  EXPECT_TRUE(sameModel(decideStart(input), expected));

  input.candidateTrialAllowed = true;
  expected.candidateTrialAllowed = true;
  EXPECT_TRUE(sameModel(decideStart(input), expected));
}

TEST(decideStart, writesARestoredStateBackWithItsGenerationRaised) {
  struct Case {
    const char* why = "";
    std::uint64_t stored = 0;
    std::optional<std::uint64_t> floor;
    std::uint64_t written = 0;
  };
  const Case cases[] = {
      {"no floor", 7, std::nullopt, 8},
      {"floor below", 7, 6, 8},
      {"floor equal", 7, 7, 8},
      {"floor above", 7, 8, 9},
      {"floor far above", 7, 1'000'000'000'000, 1'000'000'000'001},
      {"generation zero", 0, 0, 1},
      {"the last but one", lastGeneration - 2, std::nullopt, lastGeneration - 1},
      {"raised to the last but one", 7, lastGeneration - 2, lastGeneration - 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    StartInput input = startWithout();
    input.backup = withoutCandidate(c.stored);
    input.generationFloor = c.floor;
    BootState written = withoutCandidate(c.written);
    written.recovered = true;
    LauncherModel expected = freshModel(input, written);
    expectChosen(expected, 1, "aaaa");
    expected.effects = joined({bumpingWriteOf(written), attemptOf(1, "aaaa", "nonce-0001", 5'000)});

    EXPECT_TRUE(sameModel(decideStart(input), expected));
  }
}

TEST(decideStart, triesTheCandidateOfARestoredState) {
  StartInput input = startWithout();
  input.backup = storedState();
  BootState restored = storedState();
  restored.generation = 8;
  restored.recovered = true;

  const LauncherModel model = decideStart(input);

  EXPECT_TRUE(sameEffects(model.effects, joined({bumpingWriteOf(restored), writeOf(started(restored)),
                                                 attemptOf(0, "cccc", "nonce-0001", 5'000)})));
}

TEST(decideStart, writesTheFirstStateOnAFirstRunOnly) {
  for (const bool firstRun : {true, false}) {
    SCOPED_TRACE(firstRun);
    StartInput input = startWithout();
    input.firstRun = firstRun;
    input.generationFloor = 40;  // serves a restored state alone
    BootState state;
    state.generation = firstRun ? 1 : 0;
    LauncherModel expected = freshModel(input, state);
    expectChosen(expected, 3, "seed");
    expected.effects =
        joined({firstRun ? bumpingWriteOf(state) : Effects(), attemptOf(3, "seed", "nonce-0001", 5'000)});

    EXPECT_TRUE(sameModel(decideStart(input), expected));
  }
}

TEST(decideStart, endsTheFirstRunWithoutASeed) {
  StartInput input = startWithout();
  input.firstRun = true;
  input.seedRunnable = false;
  BootState state;
  state.generation = 1;

  EXPECT_TRUE(sameEffects(decideStart(input).effects, joined({bumpingWriteOf(state), noRunnableRuntime()})));
}

TEST(decideStart, ignoresTheFirstRunFlagWhereAStateWasRead) {
  StartInput input = startFrom(withoutCandidate(7));
  input.firstRun = true;

  EXPECT_TRUE(sameEffects(decideStart(input).effects, attemptOf(1, "aaaa", "nonce-0001", 5'000)));
}

TEST(decideStart, endsTheRunAtTheLastGeneration) {
  struct Case {
    const char* why = "";
    std::optional<std::uint64_t> primary;
    std::optional<std::uint64_t> backup;
    std::optional<std::uint64_t> floor;
    bool overflow = false;
  };
  const std::optional<std::uint64_t> none;
  const Case cases[] = {
      {"primary at the last", lastGeneration, none, none, true},
      {"primary one below", lastGeneration - 1, none, none, false},
      {"primary two below", lastGeneration - 2, none, none, false},
      {"backup at the last: cannot be bumped", none, lastGeneration, none, true},
      {"backup one below: bumped to the last", none, lastGeneration - 1, none, true},
      {"backup two below", none, lastGeneration - 2, none, false},
      {"backup raised to the last", none, 7, lastGeneration, true},
      {"backup raised to one below", none, 7, lastGeneration - 1, true},
      {"backup raised to two below", none, 7, lastGeneration - 2, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    StartInput input = startWithout();
    if (c.primary) input.primary = withoutCandidate(*c.primary);
    if (c.backup) input.backup = withoutCandidate(*c.backup);
    input.generationFloor = c.floor;

    const LauncherModel model = decideStart(input);

    EXPECT_EQ(model.selected.has_value(), !c.overflow);
    EXPECT_EQ(model.effects == generationOverflow(), c.overflow) << text(model);
  }
}

TEST(decideStart, doesNothingElseAtTheLastGeneration) {
  BootState state = storedState();
  state.generation = lastGeneration;
  state.attemptCount = 3;  // would be rejected
  StartInput input = startFrom(state);
  input.pending = requestFor("dddd", lastGeneration);  // would be taken in
  LauncherModel expected = freshModel(input, state);
  expected.effects = generationOverflow();

  EXPECT_TRUE(sameModel(decideStart(input), expected));
}

TEST(decideStart, rejectsACandidateWhoseStartsAreUsedUp) {
  struct Case {
    const char* why;
    std::uint32_t attemptCount;
    bool rejected;
    std::function<void(StartInput&)> change;
  };
  const Case cases[] = {
      {"none counted", 0, false, [](StartInput&) {}},
      {"one start left", 2, false, [](StartInput&) {}},
      {"used up", 3, true, [](StartInput&) {}},
      {"beyond", 4, true, [](StartInput&) {}},
      {"largest count", 0xFFFF'FFFF, true, [](StartInput&) {}},
      {"no longer runnable", 3, true, [](StartInput& i) { i.runnableSlots.erase("cccc"); }},
      {"trial not allowed", 3, false, [](StartInput& i) { i.candidateTrialAllowed = false; }},
      {"set aside for its delivery", 3, false, [](StartInput& i) { i.exempt = {"cccc"}; }},
      {"another was set aside", 3, true,
       [](StartInput& i) {
         i.exempt = {"aaaa", "dddd"};
       }},
      {"no candidate", 3, false, [](StartInput& i) { i.primary->candidate.reset(); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    StartInput input = startFrom(storedState());
    input.primary->attemptCount = c.attemptCount;
    c.change(input);

    const LauncherModel model = decideStart(input);

    const std::vector<std::string>& rejected = model.state.rejected;
    EXPECT_EQ(std::find(rejected.begin(), rejected.end(), "cccc") != rejected.end(), c.rejected);
    EXPECT_EQ(model.state.generation, c.rejected ? 8U : 7U);
    if (c.rejected) {
      const BootState state = rejectedCandidate(*input.primary);
      EXPECT_TRUE(
          sameEffects(model.effects, joined({bumpingWriteOf(state), attemptOf(1, "aaaa", "nonce-0001", 5'000)})));
      EXPECT_TRUE(sameState(model.state, state));
    }
  }
}

TEST(decideStart, keepsTheCountOfACandidateThatIsSetAsideForItsDelivery) {
  StartInput input = startFrom(storedState());
  input.primary->attemptCount = 3;
  input.runnableSlots.erase("cccc");
  input.exempt = {"cccc"};
  LauncherModel expected = freshModel(input, *input.primary);
  expectChosen(expected, 1, "aaaa");
  expected.effects = attemptOf(1, "aaaa", "nonce-0001", 5'000);

  EXPECT_TRUE(sameModel(decideStart(input), expected));
}

TEST(decideStart, dropsTheOldestOfSixtyFourRejectedSlots) {
  StartInput input = startFrom(storedState());
  input.primary->attemptCount = 3;
  input.primary->rejected.clear();
  for (int i = 0; i < 64; ++i) input.primary->rejected.push_back(std::to_string(1'000 + i));

  const std::vector<std::string> rejected = decideStart(input).state.rejected;

  ASSERT_EQ(rejected.size(), 64U);
  EXPECT_EQ(rejected.front(), "1001");
  EXPECT_EQ(rejected.back(), "cccc");
}

TEST(decideStart, goesOnAfterARejectionThatReachesTheLastGeneration) {
  StartInput input = startFrom(storedState());
  input.primary->generation = lastGeneration - 1;
  input.primary->attemptCount = 3;
  const BootState rejected = rejectedCandidate(*input.primary);

  const LauncherModel model = decideStart(input);

  EXPECT_TRUE(
      sameEffects(model.effects, joined({bumpingWriteOf(rejected), attemptOf(1, "aaaa", "nonce-0001", 5'000)})));
  EXPECT_EQ(model.state.generation, lastGeneration);
}

TEST(decideStart, takesARequestInAndStartsItsCandidate) {
  StartInput input = startFrom(storedState());
  input.primary->attemptCount = 2;  // of the candidate that is replaced
  input.pending = requestFor("dddd");
  const BootState taken = takenIn(*input.primary, *input.pending);
  LauncherModel expected = freshModel(input, started(taken));
  expectChosen(expected, 0, "dddd");
  expected.effects = joined({bumpingWriteOf(taken), plainEffect(EffectKind::ClearPending), writeOf(started(taken)),
                             attemptOf(0, "dddd", "nonce-0001", 5'000)});

  EXPECT_TRUE(sameModel(decideStart(input), expected));
}

TEST(decideStart, takesARequestInOnlyIfAllOfItFitsButDisposesOfItEitherWay) {
  struct Case {
    const char* why;
    bool taken;
    std::function<void(StartInput&)> change;
  };
  const Case cases[] = {
      {"all fits", true, [](StartInput&) {}},
      {"names an older generation", false, [](StartInput& i) { i.pending->expectedGeneration = 6; }},
      {"names a newer generation", false, [](StartInput& i) { i.pending->expectedGeneration = 8; }},
      {"taken in before", false, [](StartInput& i) { i.pending->requestId = "request-0001"; }},
      {"nothing taken in before", true, [](StartInput& i) { i.primary->lastRequestId.reset(); }},
      {"its slot is rejected", false,
       [](StartInput& i) {
         i.primary->rejected = {"eeee", "dddd"};
       }},
      {"its slot is not runnable", false, [](StartInput& i) { i.runnableSlots.erase("dddd"); }},
      {"its slot is the active one", true, [](StartInput& i) { i.pending->candidate = "aaaa"; }},
      {"its slot is the candidate already", true, [](StartInput& i) { i.pending->candidate = "cccc"; }},
      {"its slot is exempt from rejection", true, [](StartInput& i) { i.exempt = {"dddd"}; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    StartInput input = startFrom(storedState());
    input.pending = requestFor("dddd");
    c.change(input);
    const BootState kept = *input.primary;
    const BootState state = c.taken ? takenIn(kept, *input.pending) : kept;

    const LauncherModel model = decideStart(input);

    EXPECT_TRUE(sameEffects(model.effects,
                            joined({c.taken ? bumpingWriteOf(state) : Effects(), plainEffect(EffectKind::ClearPending),
                                    writeOf(started(state)), attemptOf(0, *state.candidate, "nonce-0001", 5'000)})));
    EXPECT_TRUE(sameState(model.state, started(state)));
  }
}

TEST(decideStart, leavesTheRequestAloneWhereItIsNotConsidered) {
  struct Case {
    const char* why;
    std::function<void(StartInput&)> change;
  };
  const Case cases[] = {
      {"trial not allowed", [](StartInput& i) { i.candidateTrialAllowed = false; }},
      {"first run",
       [](StartInput& i) {
         i.primary.reset();
         i.firstRun = true;
         i.pending->expectedGeneration = 1;
       }},
      {"files that hold no valid state",
       [](StartInput& i) {
         i.primary.reset();
         i.pending->expectedGeneration = 0;
       }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    StartInput input = startFrom(withoutCandidate(7));
    input.pending = requestFor("dddd");
    c.change(input);
    StartInput withoutRequest = input;
    withoutRequest.pending.reset();

    const LauncherModel model = decideStart(input);

    EXPECT_TRUE(sameModel(model, decideStart(withoutRequest)));
    EXPECT_FALSE(model.state.candidate.has_value());
  }
}

TEST(decideStart, clearsNoPendingRequestWhereNoneWasRead) {
  EXPECT_TRUE(
      sameEffects(decideStart(startFrom(withoutCandidate(7))).effects, attemptOf(1, "aaaa", "nonce-0001", 5'000)));
}

TEST(decideStart, comparesARequestWithTheGenerationAfterARestore) {
  for (const std::uint64_t named : {7U, 8U, 9U}) {
    SCOPED_TRACE(named);
    const bool taken = named == 8;
    StartInput input = startWithout();
    input.backup = withoutCandidate(7);
    input.pending = requestFor("dddd", named);
    BootState restored = withoutCandidate(8);
    restored.recovered = true;
    const BootState state = taken ? takenIn(restored, *input.pending) : restored;

    const LauncherModel model = decideStart(input);

    const Effects rest = taken ? joined({writeOf(started(state)), attemptOf(0, "dddd", "nonce-0001", 5'000)})
                               : attemptOf(1, "aaaa", "nonce-0001", 5'000);
    EXPECT_TRUE(sameEffects(model.effects, joined({bumpingWriteOf(restored), taken ? bumpingWriteOf(state) : Effects(),
                                                   plainEffect(EffectKind::ClearPending), rest})));
  }
}

TEST(decideStart, comparesARequestWithTheGenerationAfterARejection) {
  for (const std::uint64_t named : {7U, 8U}) {
    SCOPED_TRACE(named);
    const bool taken = named == 8;
    StartInput input = startFrom(storedState());
    input.primary->attemptCount = 3;
    input.pending = requestFor("dddd", named);
    const BootState rejected = rejectedCandidate(*input.primary);
    const BootState state = taken ? takenIn(rejected, *input.pending) : rejected;

    const LauncherModel model = decideStart(input);

    const Effects rest = taken ? joined({writeOf(started(state)), attemptOf(0, "dddd", "nonce-0001", 5'000)})
                               : attemptOf(1, "aaaa", "nonce-0001", 5'000);
    EXPECT_TRUE(sameEffects(model.effects, joined({bumpingWriteOf(rejected), taken ? bumpingWriteOf(state) : Effects(),
                                                   plainEffect(EffectKind::ClearPending), rest})));
  }
}

TEST(decideStart, doesNotTakeInTheSlotThatItHasJustRejected) {
  StartInput input = startFrom(storedState());
  input.primary->attemptCount = 3;
  input.pending = requestFor("cccc", 8);
  const BootState rejected = rejectedCandidate(*input.primary);

  const LauncherModel model = decideStart(input);

  EXPECT_TRUE(sameEffects(model.effects, joined({bumpingWriteOf(rejected), plainEffect(EffectKind::ClearPending),
                                                 attemptOf(1, "aaaa", "nonce-0001", 5'000)})));
}

TEST(decideStart, disposesOfARequestEvenWhereNothingCanRun) {
  StartInput input = startFrom(withoutCandidate(7));
  input.pending = requestFor("dddd");
  input.runnableSlots.clear();
  input.seedRunnable = false;

  EXPECT_TRUE(
      sameEffects(decideStart(input).effects, joined({plainEffect(EffectKind::ClearPending), noRunnableRuntime()})));
}

TEST(decideStart, takesARequestInAtTheLastButOneGeneration) {
  StartInput input = startFrom(withoutCandidate(lastGeneration - 1));
  input.pending = requestFor("dddd", lastGeneration - 1);

  const LauncherModel model = decideStart(input);

  EXPECT_EQ(model.state.generation, lastGeneration);
  EXPECT_EQ(model.selected, "dddd");
  EXPECT_EQ(model.selectedKind, 0U);
}

// Only a rejection in the same step can bring the generation to its end before the request is compared.
TEST(decideStart, endsAtTheOverflowOfTakingIn) {
  StartInput input = startFrom(storedState());
  input.primary->generation = lastGeneration - 1;
  input.primary->attemptCount = 3;
  input.pending = requestFor("dddd", lastGeneration);

  const LauncherModel model = decideStart(input);

  EXPECT_TRUE(sameEffects(model.effects, generationOverflow()));
  EXPECT_FALSE(model.selected.has_value());
}

TEST(decideStart, disposesOfAForeignRequestAfterARejectionThatReachesTheLastGeneration) {
  StartInput input = startFrom(storedState());
  input.primary->generation = lastGeneration - 1;
  input.primary->attemptCount = 3;
  input.pending = requestFor("dddd", lastGeneration - 1);
  const BootState rejected = rejectedCandidate(*input.primary);

  EXPECT_TRUE(
      sameEffects(decideStart(input).effects, joined({bumpingWriteOf(rejected), plainEffect(EffectKind::ClearPending),
                                                      attemptOf(1, "aaaa", "nonce-0001", 5'000)})));
}

TEST(decideStart, triesACandidateThreeTimesInAllAcrossRunsThatDie) {
  BootState onDisk = storedState();
  onDisk.attemptCount = 0;
  std::vector<std::string> startedSlots;
  for (int run = 0; run < 5; ++run) {  // each run dies right after its start
    const LauncherModel model = decideStart(startFrom(onDisk));
    startedSlots.push_back(*model.selected);
    onDisk = model.state;
  }

  EXPECT_EQ(startedSlots, (std::vector<std::string>{"cccc", "cccc", "cccc", "aaaa", "aaaa"}));
  EXPECT_EQ(onDisk.rejected, (std::vector<std::string>{"eeee", "cccc"}));
  EXPECT_EQ(onDisk.generation, 8U);  // bumped once, by the rejection
}

TEST(decideStart, settlesAfterARestore) {
  StartInput restore = startWithout();
  restore.backup = withoutCandidate(7);

  const LauncherModel restored = decideStart(restore);
  const LauncherModel next = decideStart(startFrom(restored.state));

  EXPECT_TRUE(sameState(next.state, restored.state));
  EXPECT_TRUE(sameEffects(next.effects, attemptOf(1, "aaaa", "nonce-0001", 5'000)));
}

}  // namespace
}  // namespace launcher_stub
