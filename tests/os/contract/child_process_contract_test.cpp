#include "os/child_process.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "os/clock.h"
#include "os/lock_file.h"
#include "os/text.h"
#include "tests/os/contract/contract_world.h"

namespace launcher_stub::os {
namespace {

using contract::Program;
using contract::World;

// A holder and a lease of its own, as a launch has them.
class ChildProcessContract : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(openLockFile(lease, world / L"launch.lock", LockWait::none)); }
  void TearDown() override { (void)endProcessTree(child); }  // whatever the test has left

  bool start(const Program& program) {
    return startChild(child, {program.executable, program.arguments, world / L"install", world / L"state root",
                              world / L"attempt", lease.handle.get()});
  }
  // Polls until the exit is reported, for at most 20 s.
  bool awaitExit() {
    for (int tries = 0; tries < 400; ++tries) {
      if (pollExit(child, exitCode, clean)) return true;
      sleepMilliseconds(50);
    }
    return false;
  }
  // The system counts a process a moment longer than it runs.
  bool jobEmptiesItself() {
    for (int tries = 0; tries < 200 && jobHasActiveProcesses(child); ++tries) sleepMilliseconds(50);
    return !jobHasActiveProcesses(child);
  }

  World world;
  LockFile lease;
  ChildProcess child;
  std::uint32_t exitCode = 12'345;
  bool clean = false;
};

TEST_F(ChildProcessContract, reportsItsExitOnceWithTheCode) {
  struct Case {
    const char* why;
    std::uint32_t code;
    bool clean;
  };
  const Case cases[] = {{"a clean end", 0, true},
                        {"a failure", 1, false},
                        {"another failure", 7, false},
                        {"the code that also stands for 'still active'", 259, false},
                        {"the code of a crash, with all its bits", 0xC0000005, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    ASSERT_TRUE(start(world.exitsWith(c.code)));
    clean = !c.clean;
    ASSERT_TRUE(awaitExit());
    EXPECT_EQ(exitCode, c.code);
    EXPECT_EQ(clean, c.clean);
    EXPECT_TRUE(child.exited);
    exitCode = 12'345;
    EXPECT_FALSE(pollExit(child, exitCode, clean)) << "once";
    EXPECT_EQ(exitCode, 12'345u) << "and nothing is touched any more";
    EXPECT_FALSE(child.waitFailed);
    resetChild(child);
  }
}

TEST_F(ChildProcessContract, isNotWaitedForWhileItRuns) {
  ASSERT_TRUE(start(world.runsUntilEnded()));
  const std::uint64_t begin = world.now();

  for (int round = 0; round < 5; ++round) EXPECT_FALSE(pollExit(child, exitCode, clean));

  EXPECT_LT(world.now() - begin, 1'000u);
  EXPECT_EQ(exitCode, 12'345u);
  EXPECT_FALSE(child.exited);
  EXPECT_FALSE(child.waitFailed);
  EXPECT_TRUE(jobHasActiveProcesses(child));
}

TEST_F(ChildProcessContract, leavesAnEmptyJobWhenItHasEnded) {
  ASSERT_TRUE(start(world.exitsWith(0)));
  ASSERT_TRUE(awaitExit());
  EXPECT_TRUE(jobEmptiesItself());
  const std::uint64_t begin = world.now();

  EXPECT_TRUE(endProcessTree(child));

  EXPECT_LT(world.now() - begin, 400u) << "no pause was needed";
  EXPECT_FALSE(child.waitFailed);
}

TEST_F(ChildProcessContract, isEndedWithItsGrandchild) {
  ASSERT_TRUE(start(world.startsAGrandchild()));
  world.awaitTree();
  EXPECT_TRUE(jobHasActiveProcesses(child));

  EXPECT_TRUE(endProcessTree(child));

  EXPECT_FALSE(jobHasActiveProcesses(child));
  EXPECT_FALSE(world.childRuns());
  EXPECT_FALSE(world.grandchildRuns());
  ASSERT_TRUE(awaitExit()) << "ended, it has an exit like any other";
  EXPECT_EQ(exitCode, 1u);
  EXPECT_FALSE(clean);
  EXPECT_FALSE(child.waitFailed);
}

TEST_F(ChildProcessContract, isOutlivedByItsGrandchildUntilTheTreeIsEnded) {
  ASSERT_TRUE(start(world.startsAGrandchild()));
  world.awaitTree();

  world.endTheChildAlone(5);

  ASSERT_TRUE(awaitExit());
  EXPECT_EQ(exitCode, 5u);
  EXPECT_TRUE(world.grandchildRuns());
  EXPECT_TRUE(jobHasActiveProcesses(child)) << "the job counts it";
  EXPECT_TRUE(endProcessTree(child));
  EXPECT_FALSE(world.grandchildRuns());
  EXPECT_FALSE(jobHasActiveProcesses(child));
}

TEST_F(ChildProcessContract, endsWithItsTreeWhenTheJobIsClosed) {
  ASSERT_TRUE(start(world.startsAGrandchild()));
  world.awaitTree();

  resetChild(child);

  EXPECT_EQ(child.process, nullptr);
  EXPECT_EQ(child.job, nullptr);
  for (int tries = 0; tries < 200 && (world.childRuns() || world.grandchildRuns()); ++tries) sleepMilliseconds(50);
  EXPECT_FALSE(world.childRuns());
  EXPECT_FALSE(world.grandchildRuns());
}

TEST_F(ChildProcessContract, beginsAnewWithEveryStart) {
  child.exited = true;
  child.endDeadline = 17;
  child.waitFailed = true;

  ASSERT_TRUE(start(world.runsUntilEnded()));

  EXPECT_NE(child.process, nullptr);
  EXPECT_NE(child.job, nullptr);
  EXPECT_FALSE(child.exited);
  EXPECT_EQ(child.endDeadline, 0u);
  EXPECT_TRUE(child.waitFailed) << "only its readers clear it";
  child.waitFailed = false;
}

TEST_F(ChildProcessContract, hasOneDeadlineForItsTreeUntilItIsReset) {
  ASSERT_TRUE(start(world.runsUntilEnded()));
  const std::uint64_t before = monotonicMilliseconds();
  ASSERT_TRUE(endProcessTree(child));
  const std::uint64_t deadline = child.endDeadline;
  EXPECT_GE(deadline, before + endTreeLimitMs);
  EXPECT_LE(deadline, monotonicMilliseconds() + endTreeLimitMs);

  sleepMilliseconds(100);
  EXPECT_TRUE(endProcessTree(child));
  EXPECT_EQ(child.endDeadline, deadline) << "a second ending gets no fresh 30 s";

  resetChild(child);
  EXPECT_EQ(child.endDeadline, 0u);
}

TEST_F(ChildProcessContract, isNotStartedFromWhatIsNoExecutable) {
  world.makeDirectory(world / L"directory");
  world.writeFile(world / L"file", "");
  struct Case {
    const char* why;
    std::wstring executable;
    const char* code;  // nothing: it is not the same everywhere
  };
  const Case cases[] = {{"missing", world / L"none.exe", "2"},
                        {"its directory is missing", world / L"none\\entry-v1.exe", "3"},
                        {"a directory", world / L"directory", ""}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    world.recordLines();
    EXPECT_FALSE(start({c.executable, {}}));
    EXPECT_EQ(child.process, nullptr);
    EXPECT_EQ(child.job, nullptr);
    ASSERT_EQ(world.lines().size(), 1u);
    const std::string text = "cannot start " + toUtf8(c.executable) + ": Win32 error ";
    EXPECT_TRUE(world.lines()[0].starts_with(text + c.code)) << world.lines()[0];
  }
}

TEST_F(ChildProcessContract, keepsItsHolderAsItWasWhenAStartFails) {
  world.recordLines();
  child.exited = true;
  child.waitFailed = true;
  child.endDeadline = 17;

  EXPECT_FALSE(start({world / L"none.exe", {}}));

  EXPECT_TRUE(child.exited);
  EXPECT_TRUE(child.waitFailed);
  EXPECT_EQ(child.endDeadline, 17u);
}

TEST_F(ChildProcessContract, isNeededByNobodyBeforeItsStart) {
  EXPECT_FALSE(pollExit(child, exitCode, clean));
  EXPECT_FALSE(jobHasActiveProcesses(child));
  EXPECT_TRUE(endProcessTree(child)) << "there is nothing to end";
  EXPECT_EQ(child.endDeadline, 0u);
  EXPECT_FALSE(child.waitFailed);
}

TEST_F(ChildProcessContract, mayBeResetAtAnyTimeAndTwice) {
  resetChild(child);
  ASSERT_TRUE(start(world.exitsWith(0)));
  ASSERT_TRUE(awaitExit());
  child.endDeadline = 17;

  resetChild(child);
  resetChild(child);

  EXPECT_EQ(child.process, nullptr);
  EXPECT_EQ(child.job, nullptr);
  EXPECT_EQ(child.endDeadline, 0u);
  EXPECT_FALSE(pollExit(child, exitCode, clean));
}

TEST_F(ChildProcessContract, keepsTheLeaseLockedAsLongAsItLives) {
  ASSERT_TRUE(start(world.runsUntilEnded()));
  closeLockFile(lease);
  LockFile another;
  EXPECT_FALSE(openLockFile(another, world / L"launch.lock", LockWait::none));
  EXPECT_TRUE(another.busy);

  EXPECT_TRUE(endProcessTree(child));

  EXPECT_TRUE(openLockFile(another, world / L"launch.lock", LockWait::fiveSeconds));
}

TEST_F(ChildProcessContract, findsTheFourVariablesOnceAndNoOtherOfThePrefix) {
  world.setVariable(L"Quorvex_Boot_Extra", L"inherited");
  world.setVariable(L"QUORVEX_BOOT_LEASE", L"7");
  world.setVariable(L"CONTRACT_KEPT", L"\u0416");

  ASSERT_TRUE(start(world.tellsItsEnvironment()));
  const std::vector<std::wstring> entries = world.toldEnvironment();

  const auto count = [&](const std::wstring& start) {
    return std::count_if(entries.begin(), entries.end(), [&](const auto& entry) { return entry.starts_with(start); });
  };
  EXPECT_EQ(count(L"QUORVEX_BOOT_"), 4);
  EXPECT_EQ(count(L"QUORVEX_BOOT_STATE_ROOT=" + world / L"state root"), 1);
  EXPECT_EQ(count(L"QUORVEX_BOOT_ATTEMPT_DIR=" + world / L"attempt"), 1);
  EXPECT_EQ(count(L"QUORVEX_BOOT_INSTALL_DIR=" + world / L"install"), 1);
  EXPECT_EQ(count(L"QUORVEX_BOOT_LEASE="), 1);
  EXPECT_EQ(count(L"QUORVEX_BOOT_LEASE=7"), 0) << "its own handle, not the inherited value";
  EXPECT_EQ(count(L"Quorvex_Boot_Extra"), 0);
  EXPECT_EQ(count(L"CONTRACT_KEPT=\u0416"), 1);
}

}  // namespace
}  // namespace launcher_stub::os
