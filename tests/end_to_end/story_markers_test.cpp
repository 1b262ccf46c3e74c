// Markers that are not the running attempt's own, or not whole, count as absent.

#include <gtest/gtest.h>

#include <memory>

#include "story.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Slots = std::vector<std::string>;
using Lines = std::vector<std::string>;

struct Case {
  const char* why;
  std::string form;
};
const Case wrongForms[] = {
    {"another nonce: of an earlier attempt of the same slot", "foreign-nonce"},
    {"another slot", "other-slot"},
    {"half a document", "half"},
    {"no schemaVersion", "no-version"},
    {"a newer schemaVersion", "newer"},
    {"empty", "empty"},
};

// Several installations whose launchers run at the same time, one for each wrong form.
struct FormRun {
  Case c;
  std::unique_ptr<Installation> installation;
  Launcher launcher;
};

template <typename Prepare>
std::vector<FormRun> startAll(Prepare prepare) {
  std::vector<FormRun> runs;
  for (const Case& c : wrongForms) {
    auto installation = std::make_unique<Installation>();
    prepare(*installation, c.form);
    Launcher launcher = installation->start();
    runs.push_back({c, std::move(installation), std::move(launcher)});
  }
  return runs;
}

// Without having started up, a runtime that ends has failed, and the next one is started.
TEST(storyMarkers, thatAreWrongDoNotMakeARuntimeReady) {
  std::vector<FormRun> runs = startAll([](Installation& installation, const std::string& form) {
    installation.installSeed(endsTheRun(9));
    installation.installSlot("aaaa", "ready " + form + "\nsleep 3000\nexit 5\n");
    installation.writeState(StateText{.generation = 5, .active = "aaaa"}.json());
  });

  for (FormRun& run : runs) {
    SCOPED_TRACE(run.c.why);
    EXPECT_EQ(run.launcher.exitCode(), 9U);
    EXPECT_EQ(run.installation->startedSlots(), (Slots{"aaaa", "seed"}));
    EXPECT_EQ(run.launcher.lines(), Lines{});
  }
}

TEST(storyMarkers, thatAreRightMakeARuntimeReady) {
  Installation installation;
  installation.installSeed(endsTheRun(9));
  installation.installSlot("aaaa", "ready half\nsleep 1000\nready\nsleep 3000\nexit 5\n");
  installation.writeState(StateText{.generation = 5, .active = "aaaa"}.json());

  EXPECT_EQ(installation.start().exitCode(), 5U);

  EXPECT_EQ(installation.startedSlots(), Slots{"aaaa"});
}

TEST(storyMarkers, thatAreWrongDoNotKeepACandidateFromBeingStoppedAtTwoMinutes) {
  StateText state{.generation = 5, .active = "aaaa", .candidate = "bbbb"};
  std::vector<FormRun> runs = startAll([&](Installation& installation, const std::string& form) {
    installation.installSeed(fails);
    installation.installSlot("aaaa", fails);
    installation.installSlot("bbbb", "ready\nhealthy " + form + "\n" + staysForever);
    installation.writeState(state.json());
  });
  state.attemptCount = 2;

  std::string seen;
  for (const FormRun& run : runs) {
    SCOPED_TRACE(run.c.why);
    ASSERT_TRUE(run.installation->startsWithin(2, static_cast<std::uint32_t>(silenceLimitMs) + patienceMs));
    const std::vector<RuntimeStart> starts = run.installation->starts();
    const std::uint64_t apart = starts[1].time - startedAt(*run.installation, starts[0].nonce);
    expectBetween("from the first start to the second", apart, silenceLimitMs, silenceLimitMs + slackMs);
    EXPECT_EQ(run.installation->state(), state.json());
    EXPECT_EQ(run.launcher.lines(), Lines{});
    seen += " " + run.c.form + " " + std::to_string(apart) + " ms;";
  }
  figures("stopped and started again after:" + seen);
}

TEST(storyMarkers, thatAreRightCountFromTheirOwnMomentAfterAWrongOne) {
  constexpr std::uint64_t betweenMs = 5'000;
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", fails);
  installation.installSlot("bbbb", "healthy half\nsleep " + std::to_string(betweenMs) + "\nhealthy\n" + staysForever);
  installation.writeState(StateText{.generation = 5, .active = "aaaa", .candidate = "bbbb"}.json());
  Launcher launcher = installation.start();

  const std::string promoted = StateText{.generation = 6, .active = "bbbb", .previous = "aaaa"}.json();
  const auto promotion = momentOfState(installation, promoted, betweenMs + soakMs + patienceMs);

  ASSERT_TRUE(promotion);
  const RuntimeLog log = installation.log("bbbb");
  const std::uint64_t soak = *promotion - timeOf(log, "healthy");
  expectBetween("from the right mark to the promotion", soak, soakMs, soakMs + slackMs);
  figures("promoted " + std::to_string(soak) + " ms after the right mark, " +
          std::to_string(*promotion - timeOf(log, "healthy half")) + " ms after the wrong one");
}

}  // namespace
}  // namespace end_to_end
