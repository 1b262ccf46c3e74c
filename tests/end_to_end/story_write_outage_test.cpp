// boot-v1.json held open by another process, so that it cannot be replaced: for a moment, and for too long.

#include <gtest/gtest.h>

#include "story.h"
#include "tests/end_to_end/error_window.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Slots = std::vector<std::string>;
using Lines = std::vector<std::string>;

const std::string boxText = "cannot write launcher state";

// A try of a write on a held file gives up after two seconds, and the next one follows 250 ms later.
constexpr std::uint64_t tryMs = replaceLimitMs + 250;

StateText stateText(std::uint32_t starts) {
  return {.generation = 5, .active = "aaaa", .candidate = "bbbb", .attemptCount = starts};
}

// The candidate "bbbb" runs `script`; what it is to be replaced by ends the run with 9.
struct Update {
  explicit Update(const std::string& script) {
    installation.installSeed(fails);
    installation.installSlot("aaaa", endsTheRun(9));
    installation.installSlot("bbbb", script);
    installation.writeState(stateText(0).json());
  }

  std::wstring stateFile() const { return installation.inRoot(L"boot-v1.json"); }
  std::uint64_t timeInLog(const std::string& command) const { return timeOf(installation.log("bbbb"), command); }

  Installation installation;
};

std::string tries(CreationCount& created) {
  return std::to_string(created.beginningWith(L"boot-v1.json.tmp-")) + " tries";
}

TEST(storyWriteOutage, ofAMomentAtTheLaunchCostsOneLine) {
  Update update(staysForever);
  CreationCount created(update.installation.stateRoot());
  PinnedFile pinned(update.stateFile());
  const std::uint64_t start = milliseconds();
  Launcher launcher = update.installation.start();
  ASSERT_TRUE(launcher.printsWithin("launch transition write failed; retrying"));
  const std::uint64_t lineAfter = milliseconds() - start;
  EXPECT_EQ(update.installation.state(), stateText(0).json());
  EXPECT_EQ(update.installation.attempts().size(), 0U);  // nothing happens before the write

  pinned.letGo();

  ASSERT_TRUE(update.installation.startsWithin(1));
  EXPECT_EQ(update.installation.startedSlots(), Slots{"bbbb"});
  EXPECT_EQ(update.installation.state(), stateText(1).json());
  EXPECT_EQ(launcher.lines(), Lines{"launch transition write failed; retrying"});
  EXPECT_EQ(update.installation.temporaryFiles().size(), 0U);
  EXPECT_GE(lineAfter, replaceLimitMs);
  EXPECT_GE(created.beginningWith(L"boot-v1.json.tmp-"), 2U);
  figures("line after " + std::to_string(lineAfter) + " ms, " + tries(created) +
          "; lines: " + joined(launcher.lines()));
}

TEST(storyWriteOutage, atTheLaunchEndsTheRunAfterThirtySeconds) {
  requireDesktop();
  Update update(staysForever);
  CreationCount created(update.installation.stateRoot());
  PinnedFile pinned(update.stateFile());
  const Lines expected = {"launch transition write failed; retrying", boxText,
                          "launch transition write failed for 30 seconds; exiting"};

  const std::uint64_t start = milliseconds();
  Launcher launcher = update.installation.start();
  ASSERT_TRUE(launcher.printsWithin(expected.back(), writeFailureLimitMs + patienceMs));
  const std::uint64_t gaveUpAfter = milliseconds() - start;
  dismissBox(launcher, boxText);

  EXPECT_EQ(launcher.exitCode(), 1U);
  EXPECT_EQ(launcher.lines(), expected);
  EXPECT_EQ(update.installation.startedSlots(), Slots{});
  EXPECT_EQ(update.installation.state(), stateText(0).json());
  EXPECT_EQ(update.installation.temporaryFiles().size(), 0U);
  const std::uint64_t least = replaceLimitMs + writeFailureLimitMs;  // from the first failure on
  expectBetween("from the start to the last line", gaveUpAfter, least, least + tryMs + 2 * slackMs);
  expectBetween("tries", created.beginningWith(L"boot-v1.json.tmp-"), 2, 2 + writeFailureLimitMs / tryMs);
  figures("gave up after " + std::to_string(gaveUpAfter) + " ms, " + tries(created) +
          "; lines: " + joined(launcher.lines()) + "; exit code 1");
}

TEST(storyWriteOutage, atTheLaunchLeavesTheNextStartNothingToRepair) {
  Update update(staysForever);
  PinnedFile pinned(update.stateFile());
  Launcher first = update.installation.start();
  ASSERT_TRUE(first.printsWithin("launch transition write failed; retrying"));
  first.kill();
  ASSERT_TRUE(leaseIsFree(update.installation));
  pinned.letGo();

  Launcher next = update.installation.start();

  ASSERT_TRUE(update.installation.startsWithin(1));
  EXPECT_EQ(update.installation.startedSlots(), Slots{"bbbb"});
  EXPECT_EQ(update.installation.state(), stateText(1).json());
  EXPECT_EQ(next.lines(), Lines{});
}

TEST(storyWriteOutage, ofAMomentAtThePromotionDelaysIt) {
  Update update("ready\nhealthy\nwait 240000 finish\nexit 4\n");
  Launcher launcher = update.installation.start();
  ASSERT_TRUE(update.installation.startsWithin(1));
  PinnedFile pinned(update.stateFile());
  ASSERT_TRUE(launcher.printsWithin("tick metadata write failed; retrying", soakMs + patienceMs));
  const std::uint64_t lineAfter = milliseconds() - update.timeInLog("healthy");
  EXPECT_EQ(update.installation.state(), stateText(1).json());

  pinned.letGo();

  const std::string promoted = StateText{.generation = 6, .active = "bbbb", .previous = "aaaa"}.json();
  const auto promotion = momentOfState(update.installation, promoted, patienceMs);
  ASSERT_TRUE(promotion);
  update.installation.writeBeside("bbbb", L"finish");
  EXPECT_EQ(launcher.exitCode(), 4U);
  EXPECT_EQ(launcher.lines(), Lines{"tick metadata write failed; retrying"});
  EXPECT_EQ(update.installation.temporaryFiles().size(), 0U);
  expectBetween("from the health mark to the line", lineAfter, soakMs + replaceLimitMs,
                soakMs + replaceLimitMs + slackMs);
  figures("line " + std::to_string(lineAfter) + " ms after the health mark, promoted at " +
          std::to_string(*promotion - update.timeInLog("healthy")) + " ms");
}

// The promotion is given up for this attempt, not the runtime: it is supervised on. The next attempt writes again.
TEST(storyWriteOutage, atThePromotionDropsItUntilTheNextAttempt) {
  requireDesktop();
  constexpr std::uint32_t whileDroppingMs = 5'000;
  Update update(
      "[start 1]\nready\nhealthy\nwait 400000 finish1\nexit 3\n[otherwise]\nready\nhealthy\nwait 400000 finish2\n"
      "exit 4\n");
  const Installation& installation = update.installation;
  CreationCount created(installation.stateRoot());
  Launcher launcher = update.installation.start();
  ASSERT_TRUE(installation.startsWithin(1));
  PinnedFile pinned(update.stateFile());
  const Lines expected = {"tick metadata write failed; retrying", boxText,
                          "tick metadata write failed for 30 seconds; dropping write"};
  ASSERT_TRUE(launcher.printsWithin(expected.back(), soakMs + writeFailureLimitMs + patienceMs));
  const std::uint64_t droppedAfter = milliseconds() - update.timeInLog("healthy");
  const std::string triesSeen = tries(created);
  dismissBox(launcher, boxText);
  pinned.letGo();

  EXPECT_FALSE(launcher.process().endsWithin(whileDroppingMs));
  EXPECT_EQ(installation.state(), stateText(1).json());  // although it could be written again
  update.installation.writeBeside("bbbb", L"finish1");
  ASSERT_TRUE(installation.startsWithin(2));
  EXPECT_EQ(installation.state(), stateText(2).json());

  const std::string promoted = StateText{.generation = 6, .active = "bbbb", .previous = "aaaa"}.json();
  EXPECT_TRUE(momentOfState(installation, promoted, soakMs + patienceMs));
  update.installation.writeBeside("bbbb", L"finish2");
  EXPECT_EQ(launcher.exitCode(), 4U);
  EXPECT_EQ(launcher.lines(), expected);
  EXPECT_EQ(installation.temporaryFiles().size(), 0U);
  const std::uint64_t least = soakMs + replaceLimitMs + writeFailureLimitMs;
  expectBetween("from the health mark to the dropping", droppedAfter, least, least + tryMs + 2 * slackMs);
  figures("dropped " + std::to_string(droppedAfter) + " ms after the health mark, " + triesSeen +
          " so far; lines: " + joined(launcher.lines()) + "; the second attempt was promoted; exit code 4");
}

TEST(storyWriteOutage, ofAMomentAtTheRuntimesEndCostsOneLine) {
  Update update("[start 1]\nwait 60000 go\ncrash\n[otherwise]\n" + staysForever);
  Launcher launcher = update.installation.start();
  ASSERT_TRUE(update.installation.startsWithin(1));
  PinnedFile pinned(update.stateFile());
  update.installation.writeBeside("bbbb", L"go");
  ASSERT_TRUE(launcher.printsWithin("exit transition write failed; retrying"));
  const std::uint64_t lineAfter = milliseconds() - update.timeInLog("crash");
  EXPECT_EQ(update.installation.startedSlots(), Slots{"bbbb"});

  pinned.letGo();

  ASSERT_TRUE(update.installation.startsWithin(2));
  EXPECT_EQ(update.installation.startedSlots(), (Slots{"bbbb", "bbbb"}));
  EXPECT_EQ(update.installation.state(), stateText(2).json());
  EXPECT_EQ(launcher.lines(), Lines{"exit transition write failed; retrying"});
  EXPECT_GE(lineAfter, replaceLimitMs);
  figures("line " + std::to_string(lineAfter) + " ms after the crash; lines: " + joined(launcher.lines()));
}

TEST(storyWriteOutage, atTheRuntimesEndEndsTheRunAfterThirtySeconds) {
  requireDesktop();
  Update update("[start 1]\nwait 60000 go\ncrash\n[otherwise]\n" + staysForever);
  CreationCount created(update.installation.stateRoot());
  Launcher launcher = update.installation.start();
  ASSERT_TRUE(update.installation.startsWithin(1));
  PinnedFile pinned(update.stateFile());
  const Lines expected = {"exit transition write failed; retrying", boxText,
                          "exit transition write failed for 30 seconds; exiting"};
  update.installation.writeBeside("bbbb", L"go");

  ASSERT_TRUE(launcher.printsWithin(expected.back(), writeFailureLimitMs + patienceMs));
  const std::uint64_t gaveUpAfter = milliseconds() - update.timeInLog("crash");
  dismissBox(launcher, boxText);

  EXPECT_EQ(launcher.exitCode(), 1U);
  EXPECT_EQ(launcher.lines(), expected);
  EXPECT_EQ(update.installation.startedSlots(), Slots{"bbbb"});
  EXPECT_EQ(update.installation.state(), stateText(1).json());
  EXPECT_EQ(update.installation.temporaryFiles().size(), 0U);
  const std::uint64_t least = replaceLimitMs + writeFailureLimitMs;
  expectBetween("from the crash to the last line", gaveUpAfter, least, least + tryMs + 2 * slackMs);
  figures("gave up " + std::to_string(gaveUpAfter) + " ms after the crash, " + tries(created) +
          "; lines: " + joined(launcher.lines()) + "; exit code 1");
}

}  // namespace
}  // namespace end_to_end
