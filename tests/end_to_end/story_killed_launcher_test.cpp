// A launcher that is killed in each run: the count on the disk survives it.

#include <gtest/gtest.h>

#include "story.h"
#include "tests/end_to_end/breakpoints.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Slots = std::vector<std::string>;
using Lines = std::vector<std::string>;

std::string counted(std::uint32_t starts) {
  return StateText{.generation = 5, .active = "aaaa", .candidate = "bbbb", .attemptCount = starts}.json();
}

const std::string rejected = StateText{.generation = 6, .active = "aaaa", .rejected = {"bbbb"}}.json();

void install(Installation& installation) {
  installation.installSeed(fails);
  installation.installSlot("aaaa", endsTheRun(6));
  installation.installSlot("bbbb", staysForever);
  installation.writeState(counted(0));
}

TEST(storyKilledLauncher, losesNoStartAndRejectsTheCandidateAfterItsThird) {
  Installation installation;
  install(installation);
  for (const std::uint32_t start : {1U, 2U, 3U}) {
    Launcher launcher = installation.start();
    ASSERT_TRUE(installation.startsWithin(start));
    const ProcessWatch runtime(installation.starts().back().processId);
    EXPECT_EQ(installation.state(), counted(start));
    launcher.kill();
    EXPECT_TRUE(runtime.endsWithin());
    ASSERT_TRUE(leaseIsFree(installation));
    EXPECT_EQ(installation.state(), counted(start));
    EXPECT_EQ(launcher.lines(), Lines{});
  }

  Launcher last = installation.start();

  EXPECT_EQ(last.exitCode(), 6U);
  EXPECT_EQ(installation.startedSlots(), (Slots{"bbbb", "bbbb", "bbbb", "aaaa"}));
  EXPECT_EQ(installation.state(), rejected);
  EXPECT_EQ(installation.previousState(), counted(3));
  EXPECT_EQ(last.lines(), Lines{});
  figures("three runs killed with 1, 2, 3 starts on the disk; the fourth rejected the candidate; exit code 6");
}

// Killed at the moment at which the runtime is about to be created: a start that never came about is on the disk.
TEST(storyKilledLauncher, hasCountedEachStartBeforeTheRuntimeIsCreated) {
  Installation installation;
  install(installation);
  for (const std::uint32_t start : {1U, 2U, 3U}) {
    Launcher launcher = installation.start({.flags = startForBreakpoints});
    ASSERT_TRUE(runToCalls(launcher.process(), {"CreateProcessW"}));
    EXPECT_EQ(installation.state(), counted(start));
    launcher.kill();
    ASSERT_TRUE(leaseIsFree(installation));
    EXPECT_EQ(installation.startedSlots(), Slots{});
  }

  Launcher last = installation.start();

  EXPECT_EQ(last.exitCode(), 6U);
  EXPECT_EQ(installation.startedSlots(), Slots{"aaaa"});
  EXPECT_EQ(installation.state(), rejected);
  EXPECT_EQ(last.lines(), Lines{});
}

// In the soak nothing is promised yet: the start counts, and the next one begins anew.
TEST(storyKilledLauncher, duringTheSoakPromotesNothing) {
  constexpr std::uint32_t partOfTheSoakMs = 20'000;
  Installation installation;
  install(installation);
  installation.installSlot("bbbb", "ready\nhealthy\n" + staysForever);
  {
    Launcher launcher = installation.start();
    ASSERT_TRUE(installation.startsWithin(1));
    EXPECT_FALSE(launcher.process().endsWithin(partOfTheSoakMs));
    launcher.kill();
    ASSERT_TRUE(leaseIsFree(installation));
  }
  EXPECT_EQ(installation.state(), counted(1));

  Launcher next = installation.start();
  ASSERT_TRUE(installation.startsWithin(2));

  EXPECT_EQ(installation.state(), counted(2));
  const std::string promoted = StateText{.generation = 6, .active = "bbbb", .previous = "aaaa"}.json();
  const auto promotion = momentOfState(installation, promoted, soakMs + patienceMs);
  ASSERT_TRUE(promotion);
  const std::uint64_t soak = *promotion - installation.starts().back().time;
  expectBetween("from the second start to the promotion", soak, soakMs, soakMs + slackMs);
  figures("promoted " + std::to_string(soak) + " ms after the second start; the first soak counted for nothing");
}

}  // namespace
}  // namespace end_to_end
