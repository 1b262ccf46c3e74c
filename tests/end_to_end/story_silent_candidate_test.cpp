// A candidate that never says that it is healthy.

#include <gtest/gtest.h>

#include <stdexcept>

#include "story.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Slots = std::vector<std::string>;
using Lines = std::vector<std::string>;

std::string counted(std::uint32_t starts) {
  return StateText{.generation = 5, .active = "aaaa", .candidate = "bbbb", .attemptCount = starts}.json();
}

// Waits for the candidate's next start and for its end; how long the launcher let it live.
std::uint64_t lifeOfStart(const Installation& installation, std::uint32_t start) {
  if (!installation.startsWithin(start)) throw std::runtime_error("no start " + std::to_string(start));
  const RuntimeStart attempt = installation.starts().back();
  const ProcessWatch runtime(attempt.processId);
  EXPECT_EQ(installation.state(), counted(start));
  EXPECT_TRUE(runtime.endsWithin(static_cast<std::uint32_t>(silenceLimitMs) + patienceMs));
  return milliseconds() - startedAt(installation, attempt.nonce);
}

TEST(storySilentCandidate, isStoppedAtTwoMinutesThreeTimesAndThenRejected) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", startsUpAndEnds("exit 5"));
  installation.installSlot("bbbb", staysForever);
  installation.writeState(counted(0));
  Launcher launcher = installation.start();

  std::string lives;
  for (const std::uint32_t start : {1U, 2U, 3U}) {
    const std::uint64_t life = lifeOfStart(installation, start);
    expectBetween("from the start to the end by force", life, silenceLimitMs, silenceLimitMs + slackMs);
    lives += std::to_string(life) + " ms ";
  }

  EXPECT_EQ(launcher.exitCode(), 5U);
  EXPECT_EQ(installation.startedSlots(), (Slots{"bbbb", "bbbb", "bbbb", "aaaa"}));
  EXPECT_EQ(installation.state(), (StateText{.generation = 6, .active = "aaaa", .rejected = {"bbbb"}}.json()));
  EXPECT_EQ(installation.previousState(), counted(3));
  EXPECT_EQ(launcher.lines(), Lines{});
  figures("stopped after " + lives + "; then rejected, and the active slot ran; lines: " + joined(launcher.lines()));
}

}  // namespace
}  // namespace end_to_end
