#include "os/child_process.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>

#include "os/clock.h"
#include "os/lock_file.h"
#include "os/text.h"
#include "tests/os/test_child.h"
#include "tests/support/standard_error_capture.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::os {
namespace {

namespace action = tests::action;
using tests::ObservedProcess;
using tests::StandardErrorCapture;
using tests::TempDirectory;

// A child that is started from this program, with a lease of its own.
class ChildProcessTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(openLockFile(lease, directory / L"launch.lock", LockWait::none)); }
  void TearDown() override { (void)endProcessTree(child); }

  bool start(const std::wstring& what, const std::vector<std::wstring>& more = {}) {
    return startProgram(tests::thisProgram(), tests::actionArguments(what, more));
  }
  bool startProgram(const std::wstring& executable, const std::vector<std::wstring>& arguments) {
    return startChild(child, {executable, arguments, directory / L"install", directory.path(), directory / L"attempt",
                              lease.handle.get()});
  }
  // Polls until the exit is reported, for at most 20 s.
  bool awaitExit() {
    for (int tries = 0; tries < 400; ++tries) {
      if (pollExit(child, exitCode, clean)) return true;
      Sleep(50);
    }
    return false;
  }

  const TempDirectory directory;
  LockFile lease;
  ChildProcess child;
  std::uint32_t exitCode = 12345;
  bool clean = false;
};

DWORD handleCount() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return count;
}

TEST_F(ChildProcessTest, reportsTheExitOnceWithItsCode) {
  struct Case {
    const char* why;
    std::wstring argument;
    std::uint32_t code;
    bool clean;
  };
  const Case cases[] = {{"clean", L"0", 0, true},
                        {"failure", L"7", 7, false},
                        {"the code of a crash", L"3221225477", 0xC0000005, false},
                        {"the code that also stands for 'still active'", L"259", 259, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    ASSERT_TRUE(start(action::exitWith, {c.argument}));
    ASSERT_TRUE(awaitExit());
    EXPECT_EQ(exitCode, c.code);
    EXPECT_EQ(clean, c.clean);
    EXPECT_TRUE(child.exited);
    EXPECT_FALSE(pollExit(child, exitCode, clean));
    EXPECT_FALSE(child.waitFailed);
    resetChild(child);
  }
}

TEST_F(ChildProcessTest, passesArgumentsOnUnchanged) {
  const std::vector<std::wstring> odd = {L"", L"a b", L"\\\"", L"C:\\x\\", L"\u0416 \U0001F680"};
  std::vector<std::wstring> more = {directory / L"report"};
  more.insert(more.end(), odd.begin(), odd.end());

  ASSERT_TRUE(start(action::dumpArguments, more));

  const std::vector<std::string> lines = tests::waitForReport(directory / L"report");
  ASSERT_EQ(lines.size(), 3 + odd.size());
  for (std::size_t index = 0; index < odd.size(); ++index) EXPECT_EQ(lines[3 + index], toUtf8(odd[index]));
}

TEST_F(ChildProcessTest, handsOverTheEnvironment) {
  ASSERT_TRUE(start(action::dumpVariables, {directory / L"report"}));

  const std::vector<std::string> lines = tests::waitForReport(directory / L"report");
  for (const std::string& expected : {"QUORVEX_BOOT_STATE_ROOT=" + toUtf8(directory.path()),
                                      "QUORVEX_BOOT_ATTEMPT_DIR=" + toUtf8(directory / L"attempt"),
                                      "QUORVEX_BOOT_INSTALL_DIR=" + toUtf8(directory / L"install")}) {
    EXPECT_EQ(std::count(lines.begin(), lines.end(), expected), 1) << expected;
  }
}

// Only disk files are looked at: the three standard handles reach a child under Wine in spite of the handle list.
TEST_F(ChildProcessTest, inheritsTheLeaseAndNoOtherHandle) {
  SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
  const OwnedHandle other = adoptHandle(CreateFileW((directory / L"other.txt").c_str(), GENERIC_WRITE, 0, &inheritable,
                                                    CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
  ASSERT_NE(other, nullptr);

  ASSERT_TRUE(start(action::dumpFiles, {directory / L"files"}));
  const std::vector<std::string> files = tests::waitForReport(directory / L"files");
  ASSERT_TRUE(awaitExit());
  ASSERT_TRUE(start(action::dumpVariables, {directory / L"variables"}));

  const auto ending = [&](std::string_view tail) {
    return std::count_if(files.begin(), files.end(), [&](const std::string& line) { return line.ends_with(tail); });
  };
  EXPECT_EQ(ending("launch.lock"), 1);
  EXPECT_EQ(ending("other.txt"), 0);
}

TEST_F(ChildProcessTest, learnsTheValueOfItsLeaseHandle) {
  ASSERT_TRUE(start(action::dumpFiles, {directory / L"files"}));
  const std::vector<std::string> files = tests::waitForReport(directory / L"files");
  ASSERT_TRUE(awaitExit());
  resetChild(child);
  ASSERT_TRUE(start(action::dumpVariables, {directory / L"variables"}));
  const std::vector<std::string> variables = tests::waitForReport(directory / L"variables");

  // Two children, one after the other: this process hands out the same free handle value again.
  const auto file = std::find_if(files.begin(), files.end(), [](const auto& l) { return l.ends_with("launch.lock"); });
  ASSERT_NE(file, files.end());
  EXPECT_EQ(std::count(variables.begin(), variables.end(), "QUORVEX_BOOT_LEASE=" + file->substr(0, file->find(' '))),
            1);
}

TEST_F(ChildProcessTest, keepsTheLeaseLockedAfterTheLaunchersOwnHandleIsClosed) {
  ASSERT_TRUE(start(action::sleepLong));
  closeLockFile(lease);

  LockFile another;
  EXPECT_FALSE(openLockFile(another, directory / L"launch.lock", LockWait::none));
  EXPECT_TRUE(another.busy);
  EXPECT_TRUE(endProcessTree(child));
  EXPECT_TRUE(openLockFile(another, directory / L"launch.lock", LockWait::fiveSeconds));
}

TEST_F(ChildProcessTest, leavesNoHandleOpenAfterItIsReset) {
  ASSERT_TRUE(start(action::exitWith, {L"0"}));
  ASSERT_TRUE(awaitExit());
  resetChild(child);
  const DWORD before = handleCount();

  for (int round = 0; round < 3; ++round) {
    ASSERT_TRUE(start(action::exitWith, {L"0"}));
    ASSERT_TRUE(awaitExit());
    resetChild(child);
    const StandardErrorCapture capture;
    EXPECT_FALSE(startProgram(directory / L"none.exe", {}));
  }

  EXPECT_EQ(handleCount(), before);
}

TEST_F(ChildProcessTest, isNotStartedFromAMissingExecutable) {
  const StandardErrorCapture capture;
  const std::wstring missing = directory / L"none\\entry-v1.exe";
  tests::makeDirectory(directory / L"none");

  EXPECT_FALSE(startProgram(missing, {}));

  EXPECT_EQ(capture.text(), "cannot start " + toUtf8(missing) + ": Win32 error 2\n");
  EXPECT_EQ(child.process, nullptr);
  EXPECT_EQ(child.job, nullptr);
}

TEST_F(ChildProcessTest, isNotStartedWithoutALease) {
  closeLockFile(lease);
  const StandardErrorCapture capture;

  EXPECT_FALSE(start(action::sleepLong));

  EXPECT_EQ(capture.text(), "cannot duplicate the launch lease: Win32 error 6\n");
  EXPECT_EQ(child.process, nullptr);
}

TEST_F(ChildProcessTest, keepsTheHolderAsItWasWhenAStartFails) {
  child.exited = true;
  child.waitFailed = true;
  child.endDeadline = 17;
  const StandardErrorCapture capture;

  EXPECT_FALSE(startProgram(directory / L"none.exe", {}));

  EXPECT_TRUE(child.exited);
  EXPECT_TRUE(child.waitFailed);
  EXPECT_EQ(child.endDeadline, 17u);
}

TEST_F(ChildProcessTest, beginsAnewWithASuccessfulStart) {
  child.exited = true;
  child.endDeadline = 17;

  ASSERT_TRUE(start(action::sleepLong));

  EXPECT_FALSE(child.exited);
  EXPECT_EQ(child.endDeadline, 0u);
  EXPECT_NE(child.process, nullptr);
  EXPECT_TRUE(jobHasActiveProcesses(child));
  EXPECT_FALSE(pollExit(child, exitCode, clean));
}

TEST_F(ChildProcessTest, runsInAJobThatEndsItsProcessesWhenClosed) {
  ASSERT_TRUE(start(action::sleepLong));

  BOOL isInJob = FALSE;
  EXPECT_TRUE(IsProcessInJob(child.process.get(), child.job.get(), &isInJob));
  EXPECT_TRUE(isInJob);
  if (tests::runsUnderWine()) return;  // its answer to the query below is always 0
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  EXPECT_TRUE(
      QueryInformationJobObject(child.job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits, nullptr));
  EXPECT_EQ(limits.BasicLimitInformation.LimitFlags, 0x2000u);
}

TEST_F(ChildProcessTest, closingTheJobEndsTheWholeTree) {
  ASSERT_TRUE(start(action::startTree, {directory / L"tree"}));
  const std::vector<std::string> ids = tests::waitForReport(directory / L"tree");
  ASSERT_EQ(ids.size(), 2u);
  const ObservedProcess first(static_cast<std::uint32_t>(std::stoul(ids[0])));
  const ObservedProcess second(static_cast<std::uint32_t>(std::stoul(ids[1])));
  ASSERT_TRUE(first.isOpen() && second.isOpen());
  EXPECT_FALSE(second.endsWithin(0));

  resetChild(child);

  EXPECT_TRUE(first.endsWithin(10'000));
  EXPECT_TRUE(second.endsWithin(10'000));
}

TEST_F(ChildProcessTest, endProcessTreeEndsDescendantsToo) {
  ASSERT_TRUE(start(action::startTree, {directory / L"tree"}));
  const std::vector<std::string> ids = tests::waitForReport(directory / L"tree");
  ASSERT_EQ(ids.size(), 2u);
  const ObservedProcess grandchild(static_cast<std::uint32_t>(std::stoul(ids[1])));
  ASSERT_TRUE(grandchild.isOpen());

  EXPECT_TRUE(endProcessTree(child));

  EXPECT_TRUE(grandchild.endsWithin(10'000));
  EXPECT_FALSE(jobHasActiveProcesses(child));
  ASSERT_TRUE(awaitExit());
  EXPECT_EQ(exitCode, 1u);
  EXPECT_FALSE(child.waitFailed);
}

TEST_F(ChildProcessTest, aJobWithoutProcessesIsEndedAtOnce) {
  ASSERT_TRUE(start(action::exitWith, {L"0"}));
  ASSERT_TRUE(awaitExit());
  for (int tries = 0; tries < 100 && jobHasActiveProcesses(child); ++tries) Sleep(50);
  const std::uint64_t before = monotonicMilliseconds();

  EXPECT_TRUE(endProcessTree(child));

  EXPECT_LT(monotonicMilliseconds() - before, 400u);  // no pause was needed
}

TEST_F(ChildProcessTest, withoutAJobThereIsNothingToEnd) {
  EXPECT_TRUE(endProcessTree(child));
  EXPECT_EQ(child.endDeadline, 0u);
  EXPECT_FALSE(jobHasActiveProcesses(child));
  EXPECT_FALSE(pollExit(child, exitCode, clean));
  EXPECT_FALSE(child.waitFailed);
}

// The same object through a handle that lacks some right, so that the calls which need that right fail.
OwnedHandle withRights(void* handle, DWORD rights) {
  HANDLE limited = nullptr;
  DuplicateHandle(GetCurrentProcess(), handle, GetCurrentProcess(), &limited, rights, FALSE, 0);
  return adoptHandle(limited);
}

TEST_F(ChildProcessTest, aSecondEndingGetsNoFreshThirtySeconds) {
  ASSERT_TRUE(start(action::sleepLong));
  const OwnedHandle whole = std::move(child.job);
  child.job = withRights(whole.get(), JOB_OBJECT_TERMINATE);  // how many are left cannot be asked
  const std::uint64_t before = monotonicMilliseconds();

  EXPECT_FALSE(endProcessTree(child));
  const std::uint64_t deadline = child.endDeadline;
  EXPECT_GE(deadline, before + endTreeLimitMs);
  EXPECT_LE(deadline, monotonicMilliseconds() + endTreeLimitMs);
  Sleep(100);
  EXPECT_FALSE(endProcessTree(child));

  EXPECT_EQ(child.endDeadline, deadline);
  EXPECT_TRUE(child.waitFailed);
}

TEST_F(ChildProcessTest, aJobThatCannotBeEndedIsAFailure) {
  ASSERT_TRUE(start(action::sleepLong));
  const OwnedHandle whole = std::move(child.job);
  child.job = withRights(whole.get(), JOB_OBJECT_QUERY);

  EXPECT_FALSE(endProcessTree(child));

  EXPECT_TRUE(child.waitFailed);
  EXPECT_TRUE(jobHasActiveProcesses(child)) << "nothing was ended";
}

TEST_F(ChildProcessTest, aJobThatCannotBeAskedCountsAsBusy) {
  ASSERT_TRUE(start(action::exitWith, {L"0"}));
  ASSERT_TRUE(awaitExit());
  const OwnedHandle whole = std::move(child.job);
  child.job = withRights(whole.get(), JOB_OBJECT_TERMINATE);

  EXPECT_TRUE(jobHasActiveProcesses(child));

  EXPECT_TRUE(child.waitFailed);
}

TEST_F(ChildProcessTest, aFailingWaitIsNoExit) {
  ASSERT_TRUE(start(action::exitWith, {L"0"}));
  ASSERT_TRUE(awaitExit());
  child.exited = false;
  const OwnedHandle whole = std::move(child.process);
  child.process = withRights(whole.get(), PROCESS_QUERY_INFORMATION);  // waiting needs another right

  EXPECT_FALSE(pollExit(child, exitCode, clean));

  EXPECT_TRUE(child.waitFailed);
  EXPECT_FALSE(child.exited);
}

TEST_F(ChildProcessTest, anExitCodeThatCannotBeReadIsOne) {
  ASSERT_TRUE(start(action::exitWith, {L"0"}));
  ASSERT_TRUE(awaitExit());
  child.exited = false;
  const OwnedHandle whole = std::move(child.process);
  child.process = withRights(whole.get(), SYNCHRONIZE);

  EXPECT_TRUE(pollExit(child, exitCode, clean));

  EXPECT_EQ(exitCode, 1u);
  EXPECT_FALSE(clean);
}

TEST_F(ChildProcessTest, resetClosesBothHandlesAndForgetsTheDeadline) {
  ASSERT_TRUE(start(action::exitWith, {L"0"}));
  ASSERT_TRUE(awaitExit());
  child.endDeadline = 17;

  resetChild(child);
  resetChild(child);

  EXPECT_EQ(child.process, nullptr);
  EXPECT_EQ(child.job, nullptr);
  EXPECT_EQ(child.endDeadline, 0u);
}

TEST(launcherKilled, leavesNothingOfTheRuntimesTree) {
  const TempDirectory directory;
  const tests::TestChild launcher(action::launchTree, {directory / L"launch.lock", directory / L"tree"});
  const std::vector<std::string> ids = tests::waitForReport(directory / L"tree");
  ASSERT_EQ(ids.size(), 2u);
  const ObservedProcess runtime(static_cast<std::uint32_t>(std::stoul(ids[0])));
  const ObservedProcess grandchild(static_cast<std::uint32_t>(std::stoul(ids[1])));
  ASSERT_TRUE(runtime.isOpen() && grandchild.isOpen());
  EXPECT_FALSE(runtime.endsWithin(0));

  launcher.kill();

  EXPECT_TRUE(runtime.endsWithin(10'000));
  EXPECT_TRUE(grandchild.endsWithin(10'000));
  LockFile lease;
  EXPECT_TRUE(openLockFile(lease, directory / L"launch.lock", LockWait::fiveSeconds)) << "the lease is free again";
}

}  // namespace
}  // namespace launcher_stub::os
