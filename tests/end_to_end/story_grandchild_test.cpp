// A process that the runtime started and left behind is ended before the next runtime starts. Each grandchild keeps the
// same file for itself: the next one gets it only when the one before is gone.

#include <gtest/gtest.h>

#include "story.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Slots = std::vector<std::string>;
using Lines = std::vector<std::string>;

// The file is named by its whole path, for all slots the same.
std::string leavesAGrandchild(const Installation& installation, const std::string& end) {
  return "grandchild 600000 " + toUtf8(installation.scratch()) + "\\held\nwait 60000 go\n" + end;
}

std::vector<ProcessWatch> grandchildrenOf(const Installation& installation, const std::string& slot) {
  std::vector<ProcessWatch> watches;
  for (const std::string& id : installation.log(slot).all("grandchild-running")) {
    watches.emplace_back(static_cast<std::uint32_t>(std::stoul(id)));
  }
  return watches;
}

bool runsWithin(const Installation& installation, const std::string& slot, std::size_t count,
                std::uint32_t limit = patienceMs) {
  return waitUntil([&] { return installation.log(slot).all("grandchild-running").size() >= count; }, limit);
}

TEST(storyGrandchild, ofACrashedCandidateIsGoneBeforeTheActiveSlotStarts) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", "hold 1000 " + toUtf8(installation.scratch()) + "\\held\n" + endsTheRun(6));
  installation.installSlot("bbbb", leavesAGrandchild(installation, "crash\n"));
  installation.writeState(StateText{.generation = 5, .active = "aaaa", .candidate = "bbbb", .attemptCount = 2}.json());
  Launcher launcher = installation.start();
  ASSERT_TRUE(runsWithin(installation, "bbbb", 1));
  const std::vector<ProcessWatch> grandchildren = grandchildrenOf(installation, "bbbb");

  installation.writeBeside("bbbb", L"go");

  EXPECT_EQ(launcher.exitCode(), 6U);
  EXPECT_EQ(installation.startedSlots(), (Slots{"bbbb", "aaaa"}));
  EXPECT_TRUE(installation.log("aaaa").has("holding")) << installation.log("aaaa").text();
  for (const ProcessWatch& grandchild : grandchildren) EXPECT_FALSE(grandchild.isRunning());
  EXPECT_FALSE(installation.log("bbbb").has("grandchild-ended"));  // not by itself
  EXPECT_EQ(launcher.lines(), Lines{});
}

TEST(storyGrandchild, ofEachOfThreeCrashesIsGoneBeforeTheNextStart) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", endsTheRun(6));
  installation.installSlot("bbbb",
                           "grandchild 600000 " + toUtf8(installation.scratch()) + "\\held\nsleep 8000\ncrash\n");
  installation.writeState(StateText{.generation = 5, .active = "aaaa", .candidate = "bbbb"}.json());

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 6U);
  EXPECT_EQ(installation.startedSlots(), (Slots{"bbbb", "bbbb", "bbbb", "aaaa"}));
  const RuntimeLog log = installation.log("bbbb");
  EXPECT_EQ(log.all("grandchild-hold"), (Lines{"yes", "yes", "yes"})) << log.text();
  EXPECT_FALSE(log.has("grandchild-ended"));
}

TEST(storyGrandchild, ofARuntimeThatAskedForARestartIsGoneBeforeTheRelaunch) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", "[start 1]\n" + leavesAGrandchild(installation, "restart -\nexit 0\n") +
                                       "[otherwise]\nhold 1000 " + toUtf8(installation.scratch()) + "\\held\n" +
                                       endsTheRun(6));
  installation.writeState(StateText{.generation = 5, .active = "aaaa"}.json());
  Launcher launcher = installation.start();
  ASSERT_TRUE(runsWithin(installation, "aaaa", 1));

  installation.writeBeside("aaaa", L"go");

  EXPECT_EQ(launcher.exitCode(), 6U);
  EXPECT_EQ(installation.startedSlots(), (Slots{"aaaa", "aaaa"}));
  EXPECT_TRUE(installation.log("aaaa").has("holding")) << installation.log("aaaa").text();
}

TEST(storyGrandchild, ofASilentCandidateIsStoppedWithItAtTwoMinutes) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", endsTheRun(6));
  installation.installSlot("bbbb", "grandchild 600000 " + toUtf8(installation.scratch()) + "\\held\n" + staysForever);
  installation.writeState(StateText{.generation = 5, .active = "aaaa", .candidate = "bbbb", .attemptCount = 2}.json());
  Launcher launcher = installation.start();
  ASSERT_TRUE(runsWithin(installation, "bbbb", 1));
  const std::vector<ProcessWatch> grandchildren = grandchildrenOf(installation, "bbbb");
  ASSERT_EQ(grandchildren.size(), 1U);
  const std::uint64_t start = startedAt(installation, installation.starts().front().nonce);

  ASSERT_TRUE(grandchildren.front().endsWithin(static_cast<std::uint32_t>(silenceLimitMs) + patienceMs));
  const std::uint64_t life = milliseconds() - start;

  EXPECT_EQ(launcher.exitCode(), 6U);
  EXPECT_EQ(installation.startedSlots(), (Slots{"bbbb", "aaaa"}));
  expectBetween("from the start to the grandchild's end", life, silenceLimitMs, silenceLimitMs + slackMs);
  figures("grandchild ended by force " + std::to_string(life) + " ms after the runtime's start");
}

}  // namespace
}  // namespace end_to_end
