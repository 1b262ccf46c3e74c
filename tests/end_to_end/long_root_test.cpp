// State roots at the lengths from which on a path below them has more than 259 code units. Windows needs the manifest's
// switch and the machine's policy for those. Wine has all files at any length, and starts no program at more than 259,
// as Windows does without the policy; tests/launcher/path_length_test.cpp plays a system with the limit for files.

#include <gtest/gtest.h>
#include <windows.h>

#include "tests/end_to_end/harness.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

// Code units; docs/design.md says of what they are made.
constexpr std::size_t longestRoot = 156;
constexpr std::size_t longestRootForPrograms = 175;

// Below the temporary directory, which is on a drive of its own under Wine.
std::wstring rootOfLength(std::size_t length) {
  wchar_t path[MAX_PATH + 1];
  std::wstring root(path, GetTempPathW(MAX_PATH + 1, path));
  root += L"long " + std::to_wstring(GetCurrentProcessId()) + L" ";
  if (root.size() >= length) throw std::runtime_error("the temporary directory's path is too long for this test");
  return root.append(length - root.size(), L'r');
}

const std::string longSlot(64, 'a');

// False: the system does not let this process write such paths.
bool canPrepare(Installation& installation) {
  installation.installSeed(endsTheRun(9));
  try {
    installation.installSlot(longSlot, endsTheRun(7));
  } catch (const std::runtime_error&) {
    return false;
  }
  installation.writeState(StateText{.generation = 5, .active = longSlot}.json());
  return true;
}

TEST(longStateRoot, ofTheLongestLengthThatNeedsNothingRunsTheSlotWithTheLongestName) {
  Installation installation(rootOfLength(longestRoot));
  ASSERT_TRUE(canPrepare(installation));

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 7U);
  EXPECT_EQ(installation.startedSlots(), std::vector<std::string>{longSlot});
  EXPECT_EQ(launcher.lines(), std::vector<std::string>{});
}

// The record of an attempt is beyond the limit there, the program of the slot is not yet.
TEST(longStateRoot, upToTheLastLengthAtWhichTheProgramCanBeStartedRunsThatSlotWithLongPaths) {
  Installation installation(rootOfLength(longestRootForPrograms));
  if (!canPrepare(installation)) GTEST_SKIP() << "no long paths here: the test itself cannot write such files";

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 7U);
  EXPECT_EQ(installation.startedSlots(), std::vector<std::string>{longSlot});
  EXPECT_EQ(launcher.lines(), std::vector<std::string>{});
}

TEST(longStateRoot, oneAboveThatFallsBackToAProgramThatCanBeStarted) {
  Installation installation(rootOfLength(longestRootForPrograms + 1));
  if (!canPrepare(installation)) GTEST_SKIP() << "no long paths here: the test itself cannot write such files";

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 9U);
  EXPECT_EQ(installation.startedSlots(), std::vector<std::string>{"seed"});
  const std::string program = "cannot start " + toUtf8(installation.slotDirectory(longSlot)) + "\\entry-v1.exe";
  EXPECT_EQ(launcher.lines(), (std::vector<std::string>{program + ": Win32 error 2", program}));
}

}  // namespace
}  // namespace end_to_end
