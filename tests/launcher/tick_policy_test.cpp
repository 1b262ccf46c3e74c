// The tick's write policy, one call at a time.
#include <gtest/gtest.h>

#include "launcher/transitions.h"
#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

constexpr std::string_view retryingLine = "tick metadata write failed; retrying";

LaunchContext contextOf(SimOs& sim) {
  sim.makeDirectory(sim.stateRoot());
  LaunchContext context;
  context.stateRoot = sim.stateRoot();
  return context;
}

// A tick's result that writes the state.
LauncherModel writingModel() {
  LauncherModel model;
  model.state = trialState();
  TransitionEffect write;
  write.record = model.state;
  model.effects.push_back(write);
  return model;
}

TEST(commitTick, forgetsItsFailuresAfterASuccess) {
  SimOs sim;
  LaunchContext context = contextOf(sim);
  TickWrites writes{.failureStart = sim.now() - 20'000, .lastLogTime = sim.now() - 20'000};

  commitTick(context, writingModel(), writes, /*childEnded=*/false);

  EXPECT_EQ(writes.failureStart, 0U);
  EXPECT_EQ(writes.lastLogTime, 0U);
  EXPECT_EQ(context.model.state, trialState());
}

TEST(commitTick, keepsThemWhereTheChildHasEnded) {
  SimOs sim;
  LaunchContext context = contextOf(sim);
  const std::uint64_t before = sim.now() - 20'000;
  TickWrites writes{.failureStart = before, .lastLogTime = before};

  commitTick(context, writingModel(), writes, /*childEnded=*/true);

  EXPECT_EQ(writes.failureStart, before);
  EXPECT_EQ(writes.lastLogTime, before);
}

TEST(commitTick, repeatsItsLineOnlyAfterThirtySeconds) {
  struct Case {
    const char* why;
    std::uint64_t sinceLastLine;
    int lines;
  };
  const Case cases[] = {{"just before", 29'999, 0}, {"at the limit", 30'000, 1}};

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    LaunchContext context = contextOf(sim);
    sim.fail(Call::replace);
    TickWrites writes{.lastLogTime = sim.now() - c.sinceLastLine};

    commitTick(context, writingModel(), writes, /*childEnded=*/false);

    EXPECT_EQ(sim.lineCount(retryingLine), c.lines);
    EXPECT_EQ(writes.failureStart, sim.now());
    EXPECT_EQ(writes.lastLogTime, c.lines == 1 ? sim.now() : sim.now() - c.sinceLastLine);
  }
}

TEST(commitTick, dropsFromThirtySecondsOfFailureOn) {
  struct Case {
    const char* why;
    std::uint64_t failingFor;
    bool dropping;
  };
  const Case cases[] = {{"just before", 29'999, false}, {"at the limit", 30'000, true}};

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    LaunchContext context = contextOf(sim);
    sim.fail(Call::replace);
    TickWrites writes{.failureStart = sim.now() - c.failingFor};

    commitTick(context, writingModel(), writes, /*childEnded=*/false);

    EXPECT_EQ(writes.dropping, c.dropping);
    EXPECT_EQ(sim.lineCount("tick metadata write failed for 30 seconds; dropping write"), c.dropping ? 1 : 0);
    EXPECT_EQ(boxTexts(sim), c.dropping ? Lines{"cannot write launcher state"} : Lines{});
    EXPECT_FALSE(context.exitRequested);
  }
}

TEST(commitTick, skipsOnlyTicksThatWriteWhileItDrops) {
  SimOs sim;
  LaunchContext context = contextOf(sim);
  TickWrites writes{.dropping = true};

  commitTick(context, writingModel(), writes, /*childEnded=*/false);
  EXPECT_EQ(sim.count(Call::replace), 0);
  EXPECT_EQ(context.model.state, BootState{}) << "nothing of it is taken over";

  LauncherModel marking;
  marking.settledMarkSeen = true;
  commitTick(context, marking, writes, /*childEnded=*/false);
  EXPECT_TRUE(context.model.settledMarkSeen) << "a tick without a write is";
}

}  // namespace
}  // namespace launcher_stub
