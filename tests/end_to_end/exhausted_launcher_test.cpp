// A launcher that runs out of something unwinds everything and ends with code 3, without a word; what it leaves is as
// after a power cut.

#include <gtest/gtest.h>

#include "tests/end_to_end/harness.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

std::wstring exhaustedLauncher() {
  const std::wstring runtime = sampleRuntime();
  return runtime.substr(0, runtime.find_last_of(L'\\') + 1) + L"exhausted_launcher.exe";
}

// The same install, with a launcher that works.
void expectANormalLaunch(Installation& installation, const std::string& slot) {
  copyFile(launcherUnderTest(), installation.directory() + L"\\launcher.exe");
  const std::size_t before = installation.starts().size();
  Launcher launcher = installation.start();
  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(launcher.lines(), std::vector<std::string>{});
  ASSERT_EQ(installation.starts().size(), before + 1);
  EXPECT_EQ(installation.starts().back().slot, slot);
}

TEST(exhaustedLauncher, withoutRandomnessEndsWithThreeAndSaysNothing) {
  Installation installation;
  installation.installSlot("aaaa", endsTheRun(0));
  const std::string state = StateText{.generation = 5, .active = "aaaa"}.json();
  installation.writeState(state);
  copyFile(exhaustedLauncher(), installation.directory() + L"\\launcher.exe");

  Launcher launcher = installation.start({.variables = {{L"LAUNCHER_EXHAUSTED", L"randomness"}}});

  EXPECT_EQ(launcher.exitCode(), 3U);
  EXPECT_EQ(launcher.lines(), std::vector<std::string>{});
  EXPECT_EQ(installation.startedSlots(), std::vector<std::string>{});
  EXPECT_EQ(installation.state(), state);
  expectANormalLaunch(installation, "aaaa");
}

// Wherever memory runs out: an exception finds its way through every part of the launch.
TEST(exhaustedLauncher, withoutMemoryEndsWithThreeAndLeavesAWholeState) {
  Installation installation;
  installation.installSlot("aaaa", endsTheRun(0));
  installation.installSlot("bbbb", endsTheRun(0));
  const std::string before = StateText{.generation = 5, .active = "aaaa"}.json();
  const std::string after =
      StateText{.generation = 6, .active = "aaaa", .candidate = "bbbb", .lastRequestId = "r", .attemptCount = 1}.json();
  int ended = 0;
  int pieces = 0;
  for (std::uint32_t code = 3; code == 3; pieces += pieces < 20 ? 1 : 9) {
    SCOPED_TRACE(testing::Message() << pieces << " pieces of memory");
    ASSERT_LT(pieces, 5000);
    installation.writeState(before);
    installation.writePending(pendingText("bbbb", "r", 5));
    copyFile(exhaustedLauncher(), installation.directory() + L"\\launcher.exe");

    Launcher launcher = installation.start({.variables = {{L"LAUNCHER_EXHAUSTED", std::to_wstring(pieces)}}});
    code = launcher.exitCode();

    EXPECT_EQ(launcher.lines(), std::vector<std::string>{});
    const std::string state = installation.state();
    if (code != 3) break;
    ++ended;
    EXPECT_TRUE(state == before || state == after) << state;
  }
  // Enough pieces for the whole launch in the end, and many cases before that.
  EXPECT_GT(ended, 20);
  RecordProperty("ended", ended);
  RecordProperty("pieces", pieces);
}

}  // namespace
}  // namespace end_to_end
