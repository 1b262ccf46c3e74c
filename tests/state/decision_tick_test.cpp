#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <variant>

#include "decision_support.h"
#include "state/decision.h"

namespace launcher_stub {
namespace {

using namespace decision_support;

constexpr std::uint64_t lastMillisecond = std::numeric_limits<std::uint64_t>::max();

enum class Seen : std::uint8_t { nothing, ready, healthy, both };

TickInput tickAt(std::uint64_t now, Seen seen = Seen::nothing) {
  TickInput input;
  input.now = now;
  input.settledSeen = seen == Seen::ready || seen == Seen::both;
  input.promotionSeen = seen == Seen::healthy || seen == Seen::both;
  return input;
}

// Healthy since 1050000 ms.
LauncherModel soakingModel() {
  LauncherModel model = runningModel(kindCandidate);
  model.promotionMarkSeen = true;
  model.markTime = 1'050'000;
  return model;
}

LauncherModel quiet(LauncherModel model) {
  model.effects.clear();
  return model;
}

TEST(decideTick, doesNothingUnlessASlotIsSelected) {
  LauncherModel model = runningModel(kindCandidate);
  model.selected.reset();

  EXPECT_TRUE(sameModel(decideTick(model, tickAt(9'000'000, Seen::both)), quiet(model)));
}

TEST(decideTick, takesTheDurationsFromTheInput) {
  LauncherModel model = runningModel(kindActive);
  TickInput input = tickAt(1'000'000);
  input.durations.first = 11;
  input.durations.second = 12;
  LauncherModel expected = quiet(model);
  expected.firstDuration = 11;
  expected.secondDuration = 12;

  EXPECT_TRUE(sameModel(decideTick(model, input), expected));
}

TEST(decideTick, remembersReadyForEveryKind) {
  for (const std::uint32_t kind : {0U, 1U, 2U, 3U}) {
    SCOPED_TRACE(kind);
    const LauncherModel model = runningModel(kind);
    LauncherModel expected = quiet(model);
    expected.settledMarkSeen = true;

    const LauncherModel ready = decideTick(model, tickAt(1'000'250, Seen::ready));
    const LauncherModel later = decideTick(ready, tickAt(1'000'500));

    EXPECT_TRUE(sameModel(ready, expected));
    EXPECT_TRUE(sameModel(later, expected));
    EXPECT_TRUE(sameModel(decideTick(model, tickAt(1'000'250)), quiet(model)));
  }
}

TEST(decideTick, watchesTheTimeAndHealthOfCandidatesOnly) {
  for (const std::uint32_t kind : {1U, 2U, 3U}) {
    SCOPED_TRACE(kind);
    LauncherModel marked = runningModel(kind);
    marked.promotionMarkSeen = true;
    marked.markTime = 1'050'000;

    const LauncherModel model = runningModel(kind);

    EXPECT_TRUE(sameModel(decideTick(model, tickAt(1'000'250, Seen::healthy)), quiet(model)));
    EXPECT_TRUE(sameModel(decideTick(model, tickAt(lastMillisecond)), quiet(model)));
    EXPECT_TRUE(sameModel(decideTick(marked, tickAt(lastMillisecond, Seen::healthy)), quiet(marked)));
  }
}

TEST(decideTick, stopsACandidateThatIsNotHealthyInTime) {
  struct Case {
    const char* why;
    std::uint64_t startTime;
    std::uint64_t now;
    bool stopped;
  };
  const Case cases[] = {
      {"at its start", 1'000'000, 1'000'000, false},
      {"one before", 1'000'000, 1'119'999, false},
      {"exactly", 1'000'000, 1'120'000, true},
      {"one after", 1'000'000, 1'120'001, true},
      {"a clock before the start", 1'000'000, 999'999, false},
      {"a clock far before the start", 1'000'000, 0, false},
      {"start at zero, one before", 0, 119'999, false},
      {"start at zero, exactly", 0, 120'000, true},
      {"large clock, one before", lastMillisecond - 120'000, lastMillisecond - 1, false},
      {"large clock, exactly", lastMillisecond - 120'000, lastMillisecond, true},
      {"large clock, too close to its end", lastMillisecond - 119'999, lastMillisecond, false},
      {"a sum would wrap", lastMillisecond, lastMillisecond, false},
      {"large start, small clock", lastMillisecond, 120'000, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    LauncherModel model = runningModel(kindCandidate);
    model.startTime = c.startTime;
    LauncherModel expected = quiet(model);
    if (c.stopped) {
      expected.timeoutQueued = true;
      expected.effects = plainEffect(EffectKind::EndRuntimeTree);
    }

    EXPECT_TRUE(sameModel(decideTick(model, tickAt(c.now)), expected));
  }
}

TEST(decideTick, stopsACandidateOnce) {
  const LauncherModel stopped = decideTick(runningModel(kindCandidate), tickAt(1'120'000));
  const LauncherModel next = decideTick(stopped, tickAt(1'120'250));
  const LauncherModel muchLater = decideTick(next, tickAt(9'000'000));

  EXPECT_TRUE(sameModel(next, quiet(stopped)));
  EXPECT_TRUE(sameModel(muchLater, quiet(stopped)));
}

TEST(decideTick, takesNoHealthAtOrAfterTheTimeOut) {
  LauncherModel expected = quiet(runningModel(kindCandidate));
  expected.timeoutQueued = true;

  const LauncherModel atOnce = decideTick(runningModel(kindCandidate), tickAt(1'120'000, Seen::healthy));
  const LauncherModel later = decideTick(atOnce, tickAt(1'120'250, Seen::healthy));

  EXPECT_TRUE(sameModel(quiet(atOnce), expected));
  EXPECT_TRUE(sameEffects(atOnce.effects, plainEffect(EffectKind::EndRuntimeTree)));
  EXPECT_TRUE(sameModel(later, expected));
}

TEST(decideTick, remembersReadyEvenInTheTickOfTheTimeOut) {
  const LauncherModel model = decideTick(runningModel(kindCandidate), tickAt(1'120'000, Seen::both));

  EXPECT_TRUE(model.settledMarkSeen);
  EXPECT_FALSE(model.promotionMarkSeen);
}

TEST(decideTick, remembersWhenHealthWasFirstSeen) {
  LauncherModel expected = quiet(runningModel(kindCandidate));
  expected.promotionMarkSeen = true;
  expected.markTime = 1'119'999;

  const LauncherModel healthy = decideTick(runningModel(kindCandidate), tickAt(1'119'999, Seen::healthy));
  const LauncherModel again = decideTick(healthy, tickAt(1'130'000, Seen::healthy));

  EXPECT_TRUE(sameModel(healthy, expected));
  EXPECT_TRUE(sameModel(again, expected));  // nor is it stopped after its 120 seconds
}

TEST(decideTick, takesHealthFromAClockBeforeTheStart) {
  LauncherModel expected = quiet(runningModel(kindCandidate));
  expected.promotionMarkSeen = true;
  expected.markTime = 999'000;

  EXPECT_TRUE(sameModel(decideTick(runningModel(kindCandidate), tickAt(999'000, Seen::healthy)), expected));
}

TEST(decideTick, promotesACandidateThatHasSoaked) {
  struct Case {
    const char* why;
    std::uint64_t markTime;
    std::uint64_t now;
    bool promoted;
  };
  const Case cases[] = {
      {"at its mark", 1'050'000, 1'050'000, false},
      {"one before", 1'050'000, 1'109'999, false},
      {"exactly", 1'050'000, 1'110'000, true},
      {"one after", 1'050'000, 1'110'001, true},
      {"long past the time-out of the start", 1'119'999, 1'179'998, false},
      {"a clock before the mark", 1'050'000, 1'049'999, false},
      {"a clock far before the mark", 1'050'000, 0, false},
      {"mark at zero", 0, 60'000, true},
      {"large clock, one before", lastMillisecond - 60'000, lastMillisecond - 1, false},
      {"large clock, exactly", lastMillisecond - 60'000, lastMillisecond, true},
      {"a sum would wrap", lastMillisecond, lastMillisecond, false},
      {"large mark, small clock", lastMillisecond, 60'000, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    LauncherModel model = soakingModel();
    model.markTime = c.markTime;
    model.state.attemptCount = 2;
    LauncherModel expected = quiet(model);
    if (c.promoted) {
      expected.state.generation = 8;
      expected.state.previous = "aaaa";
      expected.state.active = "cccc";
      expected.state.candidate.reset();
      expected.state.attemptCount = 0;
      expected.selectedKind = 1;
      expected.effects = promotionWriteOf(expected.state);
    }

    EXPECT_TRUE(sameModel(decideTick(model, tickAt(c.now)), expected));
  }
}

TEST(decideTick, promotesOnce) {
  const LauncherModel promoted = decideTick(soakingModel(), tickAt(1'110'000, Seen::healthy));

  EXPECT_EQ(promoted.state.active, "cccc");
  EXPECT_TRUE(sameModel(decideTick(promoted, tickAt(1'110'250, Seen::healthy)), quiet(promoted)));
  EXPECT_TRUE(sameModel(decideTick(promoted, tickAt(lastMillisecond)), quiet(promoted)));
}

TEST(decideTick, leavesNoPreviousWhereNothingWasActive) {
  LauncherModel model = soakingModel();
  model.state.active.reset();

  const LauncherModel promoted = decideTick(model, tickAt(1'110'000));

  EXPECT_FALSE(promoted.state.previous.has_value());
  EXPECT_EQ(promoted.state.active, "cccc");
}

TEST(decideTick, promotesInTheSameTickWhereThereIsNoSoakTime) {
  TickInput input = tickAt(1'000'250, Seen::healthy);
  input.durations.second = 0;

  const LauncherModel promoted = decideTick(runningModel(kindCandidate), input);

  EXPECT_EQ(promoted.selectedKind, 1U);
  EXPECT_EQ(promoted.markTime, 1'000'250U);
  EXPECT_TRUE(sameEffects(promoted.effects, promotionWriteOf(promoted.state)));
}

TEST(decideTick, measuresWithTheDurationsOfTheInput) {
  TickInput input = tickAt(1'000'010, Seen::healthy);
  input.durations.first = 10;
  const LauncherModel stopped = decideTick(runningModel(kindCandidate), input);
  input.durations.first = 11;
  const LauncherModel healthy = decideTick(runningModel(kindCandidate), input);

  EXPECT_TRUE(sameEffects(stopped.effects, plainEffect(EffectKind::EndRuntimeTree)));
  EXPECT_TRUE(healthy.promotionMarkSeen);

  TickInput soaked = tickAt(1'050'005);
  soaked.durations.second = 6;
  EXPECT_EQ(decideTick(soakingModel(), soaked).selectedKind, 0U);
  soaked.durations.second = 5;
  EXPECT_EQ(decideTick(soakingModel(), soaked).selectedKind, 1U);
}

TEST(decideTick, endsTheRunWhereAPromotionOverflowsTheGeneration) {
  struct Case {
    const char* why;
    std::uint64_t generation;
    bool overflow;
  };
  const Case cases[] = {
      {"two below", lastGeneration - 2, false},
      {"one below", lastGeneration - 1, false},
      {"the last", lastGeneration, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    LauncherModel model = soakingModel();
    model.state.generation = c.generation;

    const LauncherModel after = decideTick(model, tickAt(1'110'000));

    EXPECT_EQ(after.selectedKind, c.overflow ? 0U : 1U);
    EXPECT_EQ(after.state.generation, c.overflow ? lastGeneration : c.generation + 1);
    EXPECT_TRUE(sameEffects(after.effects, c.overflow ? generationOverflow() : promotionWriteOf(after.state)));
  }
}

TEST(decideTick, followsACandidateFromItsStartToItsPromotion) {
  LauncherModel model = decideStart(startFrom(storedState()));
  model.startTime = 50'000'000'000;  // stamped when the child was created, on a machine that is long up
  for (std::uint64_t at = 0; at < 160'000; at += 250) {
    Seen seen = at < 500 ? Seen::nothing : Seen::ready;
    if (at >= 100'000) seen = Seen::both;
    model = decideTick(model, tickAt(model.startTime + at, seen));
    ASSERT_TRUE(sameEffects(model.effects, {})) << at;
  }

  model = decideTick(model, tickAt(model.startTime + 160'000));

  EXPECT_TRUE(sameEffects(model.effects, promotionWriteOf(model.state)));
  EXPECT_EQ(model.state.active, "cccc");
  EXPECT_EQ(model.state.previous, "aaaa");
}

}  // namespace
}  // namespace launcher_stub
