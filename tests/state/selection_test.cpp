#include "state/selection.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "decision_support.h"

namespace launcher_stub {
namespace {

using namespace decision_support;

// Nothing selected yet, nothing queued; the marks of an attempt that has ended still stand.
LauncherModel beforeSelection() {
  LauncherModel model = runningModel(kindActive);
  model.selected.reset();
  model.selectedKind = kindSeed;
  model.startTime = 11;
  model.markTime = 12;
  model.promotionMarkSeen = true;
  model.settledMarkSeen = true;
  model.timeoutQueued = true;
  model.failedThisRun = {"dddd"};
  model.effects.clear();
  return model;
}

BootState withGeneration(std::uint64_t generation) {
  BootState state = storedState();
  state.generation = generation;
  return state;
}

std::vector<std::string> numberedSlots(std::size_t count) {
  std::vector<std::string> slots;
  for (std::size_t i = 0; i < count; ++i) slots.push_back(std::to_string(10'000 + i));
  return slots;
}

using Change = std::function<void(LauncherModel&)>;

TEST(selectRuntime, countsACandidateDurablyBeforeItsStart) {
  for (const std::uint32_t startsBefore : {0U, 1U, 2U}) {
    SCOPED_TRACE(startsBefore);
    LauncherModel model = beforeSelection();
    model.state.attemptCount = startsBefore;
    LauncherModel expected = model;
    expected.state.attemptCount = startsBefore + 1;
    expectChosen(expected, 0, "cccc");
    expected.effects = joined({writeOf(expected.state), attemptOf(0, "cccc", "nonce-0001", 777)});

    selectRuntime(model, 777);

    EXPECT_TRUE(sameModel(model, expected));
  }
}

TEST(selectRuntime, startsOtherKindsWithoutAWrite) {
  struct Case {
    std::uint32_t kind;
    const char* slot;
    SlotNames runnable;
  };
  const Case cases[] = {{1, "aaaa", {"aaaa", "bbbb"}}, {2, "bbbb", {"bbbb"}}, {3, "seed", {}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.slot);
    LauncherModel model = beforeSelection();
    model.runnableSlots = c.runnable;
    LauncherModel expected = model;
    expectChosen(expected, c.kind, c.slot);
    expected.effects = attemptOf(c.kind, c.slot, "nonce-0001", 777);

    selectRuntime(model, 777);

    EXPECT_TRUE(sameModel(model, expected));
  }
}

TEST(selectRuntime, takesTheFirstKindThatFits) {
  struct Case {
    const char* why;
    Change change;
    const char* slot;
    std::uint32_t kind;
  };
  const Case cases[] = {
      {"all fit", [](LauncherModel&) {}, "cccc", 0},
      {"trial not allowed", [](LauncherModel& m) { m.candidateTrialAllowed = false; }, "aaaa", 1},
      {"no candidate", [](LauncherModel& m) { m.state.candidate.reset(); }, "aaaa", 1},
      {"candidate not runnable", [](LauncherModel& m) { m.runnableSlots.erase("cccc"); }, "aaaa", 1},
      {"candidate failed in this run", [](LauncherModel& m) { m.failedThisRun.insert("cccc"); }, "aaaa", 1},
      {"last start left", [](LauncherModel& m) { m.state.attemptCount = 2; }, "cccc", 0},
      {"starts used up", [](LauncherModel& m) { m.state.attemptCount = 3; }, "aaaa", 1},
      {"more starts than allowed", [](LauncherModel& m) { m.state.attemptCount = 4; }, "aaaa", 1},
      {"candidate rejected",
       [](LauncherModel& m) {
         m.state.rejected = {"eeee", "cccc"};
       },
       "aaaa", 1},
      {"candidate rejected first",
       [](LauncherModel& m) {
         m.state.rejected = {"cccc", "eeee"};
       },
       "aaaa", 1},
      {"a rejected slot that is active runs",
       [](LauncherModel& m) {
         m.state.rejected = {"cccc", "aaaa"};
       },
       "aaaa", 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    LauncherModel model = beforeSelection();
    c.change(model);

    selectRuntime(model, 777);

    EXPECT_EQ(model.selected, c.slot);
    EXPECT_EQ(model.selectedKind, c.kind);
  }
}

TEST(selectRuntime, fallsFromActiveToPreviousToSeed) {
  struct Case {
    const char* why;
    Change change;
    const char* slot;
    std::uint32_t kind;
  };
  const Case cases[] = {
      {"no active", [](LauncherModel& m) { m.state.active.reset(); }, "bbbb", 2},
      {"active not runnable", [](LauncherModel& m) { m.runnableSlots.erase("aaaa"); }, "bbbb", 2},
      {"active failed in this run", [](LauncherModel& m) { m.failedThisRun.insert("aaaa"); }, "bbbb", 2},
      {"previous is the failed active",
       [](LauncherModel& m) {
         m.state.previous = "aaaa";
         m.failedThisRun.insert("aaaa");
       },
       "seed", 3},
      {"previous is also the candidate, whose starts are used up",
       [](LauncherModel& m) {
         m.state.active.reset();
         m.state.candidate = "bbbb";
         m.state.attemptCount = 3;
       },
       "bbbb", 2},
      {"neither active nor previous",
       [](LauncherModel& m) {
         m.state.active.reset();
         m.state.previous.reset();
       },
       "seed", 3},
      {"neither runnable", [](LauncherModel& m) { m.runnableSlots = {"dddd"}; }, "seed", 3},
      {"both failed in this run",
       [](LauncherModel& m) {
         m.failedThisRun = {"aaaa", "bbbb"};
       },
       "seed", 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    LauncherModel model = beforeSelection();
    model.state.candidate.reset();
    c.change(model);

    selectRuntime(model, 777);

    EXPECT_EQ(model.selected, c.slot);
    EXPECT_EQ(model.selectedKind, c.kind);
  }
}

TEST(selectRuntime, endsTheRunWhenNothingIsLeft) {
  struct Case {
    const char* why;
    Change change;
  };
  const Case cases[] = {
      {"no seed runtime", [](LauncherModel& m) { m.seedRunnable = false; }},
      {"the seed failed in this run", [](LauncherModel& m) { m.failedThisRun.insert("seed"); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    LauncherModel model = beforeSelection();
    model.runnableSlots.clear();
    c.change(model);
    LauncherModel expected = model;
    expected.effects = noRunnableRuntime();

    selectRuntime(model, 777);

    EXPECT_TRUE(sameModel(model, expected));
  }
}

TEST(selectRuntime, queuesBehindWhatIsQueuedAlready) {
  const Effects before = plainEffect(EffectKind::ClearPending);
  LauncherModel chosen = beforeSelection();
  chosen.runnableSlots.clear();
  chosen.effects = before;
  LauncherModel none = chosen;
  none.seedRunnable = false;

  selectRuntime(chosen, 777);
  selectRuntime(none, 777);

  EXPECT_TRUE(sameEffects(chosen.effects, joined({before, attemptOf(3, "seed", "nonce-0001", 777)})));
  EXPECT_TRUE(sameEffects(none.effects, joined({before, noRunnableRuntime()})));
}

TEST(queueWrite, queuesACopyOfTheWholeStateAndNeverFails) {
  LauncherModel model = beforeSelection();
  model.state = withGeneration(lastGeneration);
  const BootState written = model.state;

  queueWrite(model);
  model.state.active = "dddd";  // must not reach the queued copy

  EXPECT_TRUE(sameEffects(model.effects, writeOf(written)));
}

TEST(queueBumpingWrite, addsOneToTheGenerationUpToTheLast) {
  struct Case {
    const char* why;
    std::uint64_t before;
    std::uint64_t after;
  };
  const Case cases[] = {
      {"first", 0, 1},
      {"beyond 32 bits", 0xFFFF'FFFF, 0x1'0000'0000},
      {"second to last", lastGeneration - 2, lastGeneration - 1},
      {"last", lastGeneration - 1, lastGeneration},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    LauncherModel model = beforeSelection();
    model.state = withGeneration(c.before);
    model.effects = plainEffect(EffectKind::ClearPending);
    LauncherModel expected = model;
    expected.state.generation = c.after;
    expected.effects = joined({plainEffect(EffectKind::ClearPending), bumpingWriteOf(expected.state)});

    EXPECT_TRUE(queueBumpingWrite(model));
    EXPECT_TRUE(sameModel(model, expected));
  }
}

TEST(queueBumpingWrite, marksAPromotionAsOnlyForARunningRuntime) {
  LauncherModel model = beforeSelection();

  EXPECT_TRUE(queueBumpingWrite(model, true));
  EXPECT_TRUE(sameEffects(model.effects, promotionWriteOf(withGeneration(8))));
}

TEST(queueBumpingWrite, replacesTheQueueByTheMessageAtTheLastGeneration) {
  LauncherModel model = beforeSelection();
  model.state = withGeneration(lastGeneration);
  model.effects = joined({bumpingWriteOf(model.state), plainEffect(EffectKind::ClearPending)});
  LauncherModel expected = model;
  expected.effects = generationOverflow();

  EXPECT_FALSE(queueBumpingWrite(model));
  EXPECT_TRUE(sameModel(model, expected));
}

TEST(rejectCandidate, clearsTheCandidateAndItsCountAndBumps) {
  LauncherModel model = beforeSelection();
  model.state.attemptCount = 3;
  LauncherModel expected = model;
  expected.state.generation = 8;
  expected.state.candidate.reset();
  expected.state.attemptCount = 0;
  expected.state.rejected = {"eeee", "cccc"};
  expected.effects = bumpingWriteOf(expected.state);

  EXPECT_TRUE(rejectCandidate(model, "cccc"));
  EXPECT_TRUE(sameModel(model, expected));
}

TEST(rejectCandidate, keepsAtMostSixtyFourDroppingTheOldest) {
  struct Case {
    const char* why;
    std::size_t before;
    std::size_t after;
    const char* oldest;
  };
  const Case cases[] = {
      {"first", 0, 1, "cccc"},
      {"still room for two", 62, 63, "10000"},
      {"the last place", 63, 64, "10000"},
      {"full: the oldest goes", 64, 64, "10001"},
      {"overfull: one goes", 65, 65, "10001"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    LauncherModel model = beforeSelection();
    model.state.rejected = numberedSlots(c.before);

    EXPECT_TRUE(rejectCandidate(model, "cccc"));
    ASSERT_EQ(model.state.rejected.size(), c.after);
    EXPECT_EQ(model.state.rejected.front(), c.oldest);
    EXPECT_EQ(model.state.rejected.back(), "cccc");
  }
}

TEST(rejectCandidate, neverListsASlotTwice) {
  std::vector<std::string> full = numberedSlots(64);
  full[40] = "cccc";
  const std::vector<std::string> lists[] = {{"cccc"}, {"cccc", "eeee"}, full};
  for (const std::vector<std::string>& rejected : lists) {
    SCOPED_TRACE(textOfNames(rejected));
    LauncherModel model = beforeSelection();
    model.state.rejected = rejected;

    EXPECT_TRUE(rejectCandidate(model, "cccc"));
    EXPECT_EQ(model.state.rejected, rejected);
    EXPECT_FALSE(model.state.candidate.has_value());
    EXPECT_EQ(model.state.generation, 8U);
  }
}

TEST(rejectCandidate, worksWithoutACandidate) {
  LauncherModel model = beforeSelection();
  model.state.candidate.reset();

  EXPECT_TRUE(rejectCandidate(model, "cccc"));
  EXPECT_EQ(model.state.rejected, (std::vector<std::string>{"eeee", "cccc"}));
}

TEST(rejectCandidate, failsAtTheLastGenerationOnly) {
  LauncherModel last = beforeSelection();
  last.state = withGeneration(lastGeneration);
  last.effects = plainEffect(EffectKind::ClearPending);
  LauncherModel oneLeft = beforeSelection();
  oneLeft.state = withGeneration(lastGeneration - 1);

  EXPECT_FALSE(rejectCandidate(last, "cccc"));
  EXPECT_TRUE(sameEffects(last.effects, generationOverflow()));
  EXPECT_TRUE(rejectCandidate(oneLeft, "cccc"));
  EXPECT_TRUE(sameEffects(oneLeft.effects, bumpingWriteOf(oneLeft.state)));
  EXPECT_EQ(oneLeft.state.generation, lastGeneration);
}

TEST(applyFailure, doesNothingUnlessASlotIsSelected) {
  LauncherModel model = beforeSelection();
  const LauncherModel before = model;

  applyFailure(model, "nonce-0002", 888);

  EXPECT_TRUE(sameModel(model, before));
}

TEST(applyFailure, retriesACandidateThatHasStartsLeft) {
  for (const std::uint32_t starts : {0U, 1U, 2U}) {
    SCOPED_TRACE(starts);
    LauncherModel model = runningModel(kindCandidate);
    model.state.attemptCount = starts;
    model.effects.clear();
    LauncherModel expected = model;
    expected.nextNonce = "nonce-0002";
    expected.state.attemptCount = starts + 1;
    expectChosen(expected, 0, "cccc");
    expected.effects = joined({writeOf(expected.state), attemptOf(0, "cccc", "nonce-0002", 888)});

    applyFailure(model, "nonce-0002", 888);

    EXPECT_TRUE(sameModel(model, expected));
  }
}

TEST(applyFailure, rejectsACandidateThatHasUsedUpItsStarts) {
  for (const std::uint32_t starts : {3U, 4U}) {
    SCOPED_TRACE(starts);
    LauncherModel model = runningModel(kindCandidate);
    model.state.attemptCount = starts;
    model.effects.clear();
    LauncherModel expected = model;
    expected.nextNonce = "nonce-0002";
    expected.failedThisRun = {"cccc"};
    expected.state.generation = 8;
    expected.state.candidate.reset();
    expected.state.attemptCount = 0;
    expected.state.rejected = {"eeee", "cccc"};
    expectChosen(expected, 1, "aaaa");
    expected.effects = joined({bumpingWriteOf(expected.state), attemptOf(1, "aaaa", "nonce-0002", 888)});

    applyFailure(model, "nonce-0002", 888);

    EXPECT_TRUE(sameModel(model, expected));
  }
}

TEST(applyFailure, neverRetriesAnotherKindInThisRun) {
  struct Case {
    std::uint32_t kind;
    const char* failed;
    std::uint32_t nextKind;
    const char* next;
  };
  const Case cases[] = {{1, "aaaa", 2, "bbbb"}, {2, "bbbb", 1, "aaaa"}, {3, "seed", 1, "aaaa"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.failed);
    LauncherModel model = runningModel(c.kind);
    model.state.candidate.reset();
    model.state.attemptCount = 0;
    model.effects.clear();
    LauncherModel expected = model;
    expected.nextNonce = "nonce-0002";
    expected.failedThisRun = {c.failed};
    expectChosen(expected, c.nextKind, c.next);
    expected.effects = attemptOf(c.nextKind, c.next, "nonce-0002", 888);

    applyFailure(model, "nonce-0002", 888);

    EXPECT_TRUE(sameModel(model, expected));
  }
}

TEST(applyFailure, judgesByTheKindOfTheAttemptNotByTheName) {
  struct Case {
    const char* why = "";
    std::uint32_t kind = kindSeed;
    const char* selected = "";
    std::optional<std::string> candidate;
    std::vector<std::string> rejected;
    SlotNames failed;
  };
  const Case cases[] = {
      {"the active one has the candidate's name", 1, "cccc", "cccc", {"eeee"}, {"cccc"}},
      {"a candidate's attempt whose name the state has lost", 0, "cccc", std::nullopt, {"eeee", "cccc"}, {"cccc"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    LauncherModel model = runningModel(c.kind);
    model.selected = c.selected;
    model.state.candidate = c.candidate;
    model.state.attemptCount = 3;

    applyFailure(model, "nonce-0002", 888);

    EXPECT_EQ(model.state.rejected, c.rejected);
    EXPECT_EQ(model.failedThisRun, c.failed);
    EXPECT_EQ(model.selected, "aaaa");
  }
}

TEST(applyFailure, addsAnActiveOneWithTheCandidatesNameToTheFailedEvenWithStartsLeft) {
  LauncherModel model = runningModel(kindActive);
  model.selected = "cccc";
  model.state.active = "cccc";
  model.state.attemptCount = 1;

  applyFailure(model, "nonce-0002", 888);

  EXPECT_EQ(model.failedThisRun, SlotNames{"cccc"});
  EXPECT_EQ(model.selected, "bbbb");
  EXPECT_EQ(model.state.attemptCount, 1U);
}

TEST(applyFailure, endsAtTheOverflowOfARejection) {
  LauncherModel model = runningModel(kindCandidate);
  model.state = withGeneration(lastGeneration);
  model.state.attemptCount = 3;
  LauncherModel expected = model;
  expected.nextNonce = "nonce-0002";
  expected.failedThisRun = {"cccc"};
  expected.state.rejected = {"eeee", "cccc"};
  expected.state.candidate.reset();
  expected.state.attemptCount = 0;
  expected.effects = generationOverflow();

  applyFailure(model, "nonce-0002", 888);

  EXPECT_TRUE(sameModel(model, expected));  // the failed slot stays selected: nothing was chosen after it
}

TEST(applyFailure, retriesACandidateAtTheLastGeneration) {
  LauncherModel model = runningModel(kindCandidate);
  model.state = withGeneration(lastGeneration);
  model.state.attemptCount = 2;
  model.effects.clear();

  applyFailure(model, "nonce-0002", 888);

  EXPECT_TRUE(sameEffects(model.effects, joined({writeOf(model.state), attemptOf(0, "cccc", "nonce-0002", 888)})));
  EXPECT_EQ(model.state.attemptCount, 3U);
}

TEST(applyFailure, remembersWhatFailedBefore) {
  LauncherModel model = runningModel(kindPrevious);
  model.failedThisRun = {"aaaa"};
  model.state.candidate.reset();

  applyFailure(model, "nonce-0002", 888);

  EXPECT_EQ(model.failedThisRun, (SlotNames{"aaaa", "bbbb"}));
  EXPECT_EQ(model.selected, "seed");
}

TEST(applyFailure, leavesNothingSelectedWhenNothingIsLeft) {
  LauncherModel model = runningModel(kindSeed);
  model.state.candidate.reset();
  model.runnableSlots.clear();
  model.effects.clear();
  LauncherModel expected = model;
  expected.nextNonce = "nonce-0002";
  expected.failedThisRun = {"seed"};
  expected.selected.reset();
  expected.effects = noRunnableRuntime();

  applyFailure(model, "nonce-0002", 888);

  EXPECT_TRUE(sameModel(model, expected));
}

}  // namespace
}  // namespace launcher_stub
