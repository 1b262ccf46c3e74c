// A candidate that proves itself becomes the active slot.

#include <gtest/gtest.h>

#include "story.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Slots = std::vector<std::string>;
using Lines = std::vector<std::string>;

// The candidate "bbbb" beside the active "aaaa", which is never to run.
struct Update {
  explicit Update(const std::string& script) {
    installation.installSeed(fails);
    installation.installSlot("aaaa", fails);
    installation.installSlot("bbbb", script);
    installation.writeState(StateText{.generation = 5, .active = "aaaa", .candidate = "bbbb"}.json());
  }

  Installation installation;
};

const std::string counted = StateText{.generation = 5, .active = "aaaa", .candidate = "bbbb", .attemptCount = 1}.json();
const std::string promoted = StateText{.generation = 6, .active = "bbbb", .previous = "aaaa"}.json();

TEST(storyPromotion, comesSixtySecondsAfterTheHealthMarkWhileTheRuntimeRuns) {
  Update update("ready\nsleep 500\nhealthy\nwait 240000 finish\nexit 7\n");
  Installation& installation = update.installation;
  Launcher launcher = installation.start();
  ASSERT_TRUE(installation.startsWithin(1));
  const ProcessWatch runtime(installation.starts().front().processId);
  EXPECT_EQ(installation.state(), counted);

  const auto promotion = momentOfState(installation, promoted, soakMs + patienceMs);
  ASSERT_TRUE(promotion);
  const bool ranOn = runtime.isRunning();
  installation.writeBeside("bbbb", L"finish");

  EXPECT_EQ(launcher.exitCode(), 7U);
  EXPECT_TRUE(ranOn);
  EXPECT_EQ(installation.state(), promoted);
  EXPECT_EQ(installation.previousState(), counted);
  EXPECT_EQ(installation.startedSlots(), Slots{"bbbb"});
  EXPECT_EQ(launcher.lines(), Lines{});
  const std::uint64_t soak = *promotion - timeOf(installation.log("bbbb"), "healthy");
  expectBetween("from the health mark to the promotion on disk", soak, soakMs, soakMs + slackMs);
  figures("promoted " + std::to_string(soak) +
          " ms after the health mark; exit code 7; lines: " + joined(launcher.lines()));
}

TEST(storyPromotion, isStillReachedByAHealthMarkShortlyBeforeTheTwoMinutesAreOver) {
  Update update("ready\nsleep 110000\nhealthy\nwait 240000 finish\nexit 0\n");
  Installation& installation = update.installation;
  Launcher launcher = installation.start();

  const auto promotion = momentOfState(installation, promoted, silenceLimitMs + soakMs + patienceMs);

  ASSERT_TRUE(promotion);
  const std::uint64_t soak = *promotion - timeOf(installation.log("bbbb"), "healthy");
  const std::uint64_t life = *promotion - startedAt(installation, installation.starts().front().nonce);
  expectBetween("from the health mark to the promotion on disk", soak, soakMs, soakMs + slackMs);
  EXPECT_GE(life, silenceLimitMs);  // the two minutes passed meanwhile, without consequence
  EXPECT_EQ(installation.startedSlots(), Slots{"bbbb"});
  installation.writeBeside("bbbb", L"finish");
  EXPECT_EQ(launcher.exitCode(), 0U);
  figures("promoted " + std::to_string(soak) + " ms after the health mark, " + std::to_string(life) +
          " ms after the start");
}

TEST(storyPromotion, doesNotComeForACandidateThatEndsDuringItsSixtySeconds) {
  Update update("[start 1]\nready\nhealthy\nsleep 55000\nexit 0\n[otherwise]\n" + staysForever);
  Installation& installation = update.installation;
  Launcher launcher = installation.start();

  ASSERT_TRUE(installation.startsWithin(2, static_cast<std::uint32_t>(soakMs) + patienceMs));

  EXPECT_EQ(installation.startedSlots(), (Slots{"bbbb", "bbbb"}));
  EXPECT_EQ(installation.state(),
            (StateText{.generation = 5, .active = "aaaa", .candidate = "bbbb", .attemptCount = 2}.json()));
  EXPECT_EQ(installation.previousState(), "");
  EXPECT_EQ(launcher.lines(), Lines{});
  figures("started again " +
          std::to_string(installation.starts().back().time - timeOf(installation.log("bbbb"), "healthy")) +
          " ms after the health mark, as the second of three starts");
}

}  // namespace
}  // namespace end_to_end
