// A candidate that crashes at once, and what is started in its place, all in one run of the launcher.

#include <gtest/gtest.h>

#include "story.h"
#include "tests/end_to_end/error_window.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Slots = std::vector<std::string>;
using Lines = std::vector<std::string>;

const std::string crashes = "crash\n";

StateText stateText() { return {.generation = 5, .active = "aaaa", .previous = "cccc", .candidate = "bbbb"}; }

std::string rejected() {
  return StateText{.generation = 6, .active = "aaaa", .previous = "cccc", .rejected = {"bbbb"}}.json();
}

void install(Installation& installation, const std::string& active, const std::string& previous,
             const std::string& seed) {
  installation.installSeed(seed);
  installation.installSlot("aaaa", active);
  installation.installSlot("bbbb", crashes);
  installation.installSlot("cccc", previous);
  installation.writeState(stateText().json());
}

std::string timesBetween(const std::vector<RuntimeStart>& starts) {
  std::string text;
  for (std::size_t i = 1; i < starts.size(); ++i) {
    text += (i > 1 ? ", " : "") + std::to_string(starts[i].time - starts[i - 1].time) + " ms";
  }
  return text;
}

TEST(storyCrashingCandidate, isStartedThreeTimesAndRejectedAndTheActiveSlotRuns) {
  Installation installation;
  install(installation, startsUpAndEnds("exit 5"), fails, fails);

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 5U);
  EXPECT_EQ(installation.startedSlots(), (Slots{"bbbb", "bbbb", "bbbb", "aaaa"}));
  EXPECT_EQ(installation.state(), rejected());
  EXPECT_EQ(launcher.lines(), Lines{});
  figures("started bbbb bbbb bbbb aaaa, apart by " + timesBetween(installation.starts()) + "; exit code 5");
}

TEST(storyCrashingCandidate, isCountedOnDiskBeforeEachOfItsStarts) {
  Installation installation;
  install(installation, endsTheRun(0), fails, fails);
  installation.installSlot("bbbb",
                           "[start 1]\nwait 60000 go1\ncrash\n[start 2]\nwait 60000 go2\ncrash\n"
                           "[start 3]\nwait 60000 go3\ncrash\n");
  Launcher launcher = installation.start();

  for (const std::uint32_t start : {1U, 2U, 3U}) {
    ASSERT_TRUE(installation.startsWithin(start));
    StateText expected = stateText();
    expected.attemptCount = start;
    EXPECT_EQ(installation.state(), expected.json());
    installation.writeBeside("bbbb", L"go" + std::to_wstring(start));
  }

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(installation.state(), rejected());
}

TEST(storyCrashingCandidate, isFollowedByActiveThenPreviousThenTheSeed) {
  Installation installation;
  install(installation, crashes, crashes, endsTheRun(9));

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 9U);
  EXPECT_EQ(installation.startedSlots(), (Slots{"bbbb", "bbbb", "bbbb", "aaaa", "cccc", "seed"}));
  EXPECT_EQ(installation.attempts().size(), 6U);
  EXPECT_EQ(installation.state(), rejected());
  EXPECT_EQ(launcher.lines(), Lines{});
}

TEST(storyCrashingCandidate, endsInTheBoxWhenNothingElseRunsEither) {
  requireDesktop();
  Installation installation;
  install(installation, crashes, crashes, crashes);

  Launcher launcher = installation.start();
  dismissBox(launcher, "No runnable runtime");

  EXPECT_EQ(launcher.exitCode(), 1U);
  EXPECT_EQ(installation.startedSlots(), (Slots{"bbbb", "bbbb", "bbbb", "aaaa", "cccc", "seed"}));
  EXPECT_EQ(installation.state(), rejected());
  EXPECT_EQ(launcher.lines(), Lines{"No runnable runtime"});
  figures("six starts, apart by " + timesBetween(installation.starts()) + "; lines: " + joined(launcher.lines()) +
          "; exit code 1");
}

// A start that the system refuses is a start all the same.
TEST(storyCrashingCandidate, isRejectedAfterThreeStartsAlsoWhenTheSystemRefusesThem) {
  Installation installation;
  install(installation, endsTheRun(0), fails, fails);
  installation.writeBeside("bbbb", L"entry-v1.exe", "no program at all");

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(installation.startedSlots(), Slots{"aaaa"});
  EXPECT_EQ(installation.state(), rejected());
  const Lines lines = launcher.lines();
  EXPECT_EQ(lines.size(), 6U) << joined(lines);
  for (const std::string& line : lines) EXPECT_TRUE(line.starts_with("cannot start ")) << line;
  figures("six lines for three refused starts, the first: " + (lines.empty() ? "none" : lines.front()));
}

}  // namespace
}  // namespace end_to_end
