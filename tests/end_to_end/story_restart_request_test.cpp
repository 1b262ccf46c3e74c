// A runtime that asks to be restarted.

#include <gtest/gtest.h>

#include "story.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Slots = std::vector<std::string>;
using Lines = std::vector<std::string>;

StateText stateText() { return {.generation = 5, .active = "aaaa", .lastRequestId = "request-1"}; }

// "aaaa" runs `script` at its first start and ends the run with 0 at any other; "bbbb" ends it with 8, the seed with 9.
struct ActiveRun {
  explicit ActiveRun(const std::string& script) {
    installation.installSeed(endsTheRun(9));
    installation.installSlot("aaaa", "[start 1]\n" + script + "[otherwise]\n" + endsTheRun(0));
    installation.installSlot("bbbb", endsTheRun(8));
    installation.writeState(stateText().json());
  }

  Installation installation;
};

// Requests that ask for nothing: present, but not to be honoured.
struct Case {
  const char* why;
  std::string request;
};
const Case notHonoured[] = {
    {"of another attempt, or left over from one", "restart - foreign-nonce\n"},
    {"of another slot", "restart - other-slot\n"},
    {"half-written", "restart - half\n"},
    {"without schemaVersion", "restart - no-version\n"},
    {"of a newer version", "restart - newer\n"},
    {"empty", "restart - empty\n"},
    {"for a request that nobody made", "restart request-9\n"},
};

TEST(storyRestartRequest, takesAnUpdateFromTheSeedToItsPromotionInOneRun) {
  Installation installation;
  installation.installSeed("stage bbbb next.txt\npending bbbb request-1\nrestart request-1\nexit 0\n", deliveryA);
  installation.writeBeside("seed", L"next.txt", "log runtime.log\nready\nhealthy\nwait 240000 finish\nexit 4\n");

  Launcher launcher = installation.start();
  const std::string promoted = StateText{.generation = 3, .active = "bbbb", .lastRequestId = "request-1"}.json();
  const auto promotion = momentOfState(installation, promoted, soakMs + 2 * patienceMs);
  ASSERT_TRUE(promotion) << installation.state();
  installation.writeBeside("bbbb", L"finish");

  EXPECT_EQ(launcher.exitCode(), 4U);
  EXPECT_EQ(installation.startedSlots(), (Slots{"seed", "bbbb"}));
  EXPECT_FALSE(installation.hasPending());
  EXPECT_EQ(installation.state(), promoted);
  EXPECT_EQ(launcher.lines(), Lines{});
  const std::vector<RuntimeStart> starts = installation.starts();
  const std::uint64_t soak = *promotion - timeOf(installation.log("bbbb"), "healthy");
  expectBetween("from the health mark to the promotion on disk", soak, soakMs, soakMs + slackMs);
  figures("candidate started " + std::to_string(starts[1].time - starts[0].time) + " ms after the seed, promoted " +
          std::to_string(soak) + " ms after its health mark");
}

TEST(storyRestartRequest, thatIsRightStartsTheSlotAnew) {
  const Case cases[] = {
      {"without a request id", "restart -\n"},
      {"for the request that was taken in last", "restart request-1\n"},
      {"by a runtime that has started up", "ready\nsleep 1000\nrestart -\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    ActiveRun run(c.request + "exit 3\n");

    Launcher launcher = run.installation.start();

    EXPECT_EQ(launcher.exitCode(), 0U);
    EXPECT_EQ(run.installation.startedSlots(), (Slots{"aaaa", "aaaa"}));
    EXPECT_EQ(run.installation.state(), stateText().json());
    EXPECT_EQ(launcher.lines(), Lines{});
  }
}

// It is a normal end nonetheless: whoever writes one knows what it does.
TEST(storyRestartRequest, thatIsNotToBeHonouredEndsTheRunWithTheRuntimesCode) {
  for (const Case& c : notHonoured) {
    SCOPED_TRACE(c.why);
    ActiveRun run(c.request + "exit 3\n");

    Launcher launcher = run.installation.start();

    EXPECT_EQ(launcher.exitCode(), 3U);
    EXPECT_EQ(run.installation.startedSlots(), Slots{"aaaa"});
    EXPECT_EQ(run.installation.state(), stateText().json());
    EXPECT_EQ(launcher.lines(), Lines{});
  }
}

TEST(storyRestartRequest, ofACandidateThatIsNotToBeHonouredEndsTheRunAndTakesTheStartOffTheCount) {
  for (const Case& c : notHonoured) {
    SCOPED_TRACE(c.why);
    ActiveRun run(fails);
    run.installation.installSlot("bbbb", c.request + "exit 3\n");
    StateText state = stateText();
    state.candidate = "bbbb";
    state.attemptCount = 1;
    run.installation.writeState(state.json());

    Launcher launcher = run.installation.start();

    EXPECT_EQ(launcher.exitCode(), 3U);
    EXPECT_EQ(run.installation.startedSlots(), Slots{"bbbb"});
    EXPECT_EQ(run.installation.state(), state.json());
    EXPECT_EQ(launcher.lines(), Lines{});
  }
}

TEST(storyRestartRequest, ofACandidateDoesNotCountAsAStartHoweverOftenItComes) {
  constexpr std::size_t restarts = 5;
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", fails);
  std::string script;
  for (std::size_t i = 1; i <= restarts; ++i) script += "[start " + std::to_string(i) + "]\nrestart -\nexit 0\n";
  installation.installSlot("bbbb", script + "[otherwise]\n" + staysForever);
  StateText state{.generation = 5, .active = "aaaa", .candidate = "bbbb"};
  installation.writeState(state.json());

  Launcher launcher = installation.start();

  ASSERT_TRUE(installation.startsWithin(restarts + 1));
  EXPECT_EQ(installation.startedSlots(), Slots(restarts + 1, "bbbb"));
  state.attemptCount = 1;
  EXPECT_EQ(installation.state(), state.json());
  EXPECT_EQ(launcher.lines(), Lines{});
  figures("six starts of the candidate, five of them asked for; one start on the disk");
}

TEST(storyRestartRequest, ofACandidateThatHadToBeStoppedDoesNotCount) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", fails);
  installation.installSlot("bbbb", "[start 1]\nrestart -\n" + staysForever + "[otherwise]\n" + staysForever);
  StateText state{.generation = 5, .active = "aaaa", .candidate = "bbbb"};
  installation.writeState(state.json());
  Launcher launcher = installation.start();

  ASSERT_TRUE(installation.startsWithin(2, static_cast<std::uint32_t>(silenceLimitMs) + patienceMs));

  const std::vector<RuntimeStart> starts = installation.starts();
  const std::uint64_t apart = starts[1].time - startedAt(installation, starts[0].nonce);
  expectBetween("from the first start to the second", apart, silenceLimitMs, silenceLimitMs + slackMs);
  state.attemptCount = 2;
  EXPECT_EQ(installation.state(), state.json());
  figures("stopped and started again after " + std::to_string(apart) + " ms; two starts on the disk");
}

TEST(storyRestartRequest, withAStalePendingRequestRelaunchesAndDisposesOfIt) {
  ActiveRun run("pending bbbb request-2 4\nrestart request-2\nexit 3\n");  // made for generation 4, which has passed

  Launcher launcher = run.installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(run.installation.startedSlots(), (Slots{"aaaa", "aaaa"}));
  EXPECT_FALSE(run.installation.hasPending());
  EXPECT_EQ(run.installation.state(), stateText().json());
  EXPECT_EQ(launcher.lines(), Lines{});
}

// The run ends, and the request waits for the next one if it can be read.
TEST(storyRestartRequest, thatDoesNotMatchThePendingRequestEndsTheRunAndLeavesItToTheNext) {
  struct PendingCase {
    const char* why;
    std::string requests;
    std::string startedNext;
  };
  const PendingCase cases[] = {
      {"names another one", "pending bbbb request-2\nrestart request-3\n", "bbbb"},
      {"is half-written", "pending bbbb request-2\nrestart request-2 half\n", "bbbb"},
      {"names one that is half-written", "pending bbbb request-2 5 half\nrestart request-2\n", "aaaa"},
  };
  for (const PendingCase& c : cases) {
    SCOPED_TRACE(c.why);
    ActiveRun run(c.requests + "exit 3\n");
    EXPECT_EQ(run.installation.start().exitCode(), 3U);
    EXPECT_EQ(run.installation.startedSlots(), Slots{"aaaa"});
    EXPECT_TRUE(run.installation.hasPending());

    (void)run.installation.start().exitCode();

    EXPECT_EQ(run.installation.startedSlots(), (Slots{"aaaa", c.startedNext}));
    EXPECT_EQ(run.installation.hasPending(), c.startedNext == "aaaa");  // only what can be read is disposed of
  }
}

}  // namespace
}  // namespace end_to_end
