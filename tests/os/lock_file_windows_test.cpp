#include "os/lock_file.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <thread>

#include "os/clock.h"
#include "tests/os/test_child.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::os {
namespace {

using tests::TempDirectory;
using tests::TestChild;
namespace action = tests::action;

TEST(openLockFile, createsAMissingFileEmpty) {
  const TempDirectory directory;
  LockFile lock;
  lock.busy = true;  // stale, from a failure before

  EXPECT_TRUE(openLockFile(lock, directory / L"state.lock", LockWait::none));

  EXPECT_NE(lock.handle, nullptr);
  EXPECT_FALSE(lock.busy);
  closeLockFile(lock);
  EXPECT_EQ(tests::readFile(directory / L"state.lock"), "");
}

TEST(openLockFile, leavesTheContentOfAnExistingFileAlone) {
  const TempDirectory directory;
  tests::writeFile(directory / L"state.lock", "kept");
  LockFile lock;

  EXPECT_TRUE(openLockFile(lock, directory / L"state.lock", LockWait::fiveSeconds));
  closeLockFile(lock);

  EXPECT_EQ(tests::readFile(directory / L"state.lock"), "kept");
}

TEST(openLockFile, keepsEveryOtherOpeningOut) {
  const TempDirectory directory;
  LockFile lock;
  ASSERT_TRUE(openLockFile(lock, directory / L"launch.lock", LockWait::none));

  EXPECT_EQ(tests::readFile(directory / L"launch.lock"), std::nullopt);
  LockFile second;
  EXPECT_FALSE(openLockFile(second, directory / L"launch.lock", LockWait::none));
  EXPECT_TRUE(second.busy);
  EXPECT_EQ(second.handle, nullptr);
}

TEST(openLockFile, keepsOtherProcessesOutUntilItIsClosed) {
  const TempDirectory directory;
  const std::wstring path = directory / L"launch.lock";
  LockFile lock;
  ASSERT_TRUE(openLockFile(lock, path, LockWait::none));
  EXPECT_EQ(TestChild(action::openLock, {path}).waitForExit(20'000), 1u);

  closeLockFile(lock);

  EXPECT_EQ(TestChild(action::openLock, {path}).waitForExit(20'000), 0u);
}

TEST(openLockFile, withoutWaitingGivesUpAtOnceWhileAnotherProcessHoldsIt) {
  const TempDirectory directory;
  const TestChild holder(action::holdLock, {directory / L"launch.lock", directory / L"held"});
  ASSERT_EQ(tests::waitForReport(directory / L"held").size(), 1u);
  LockFile lock;
  const std::uint64_t start = monotonicMilliseconds();

  EXPECT_FALSE(openLockFile(lock, directory / L"launch.lock", LockWait::none));

  EXPECT_LT(monotonicMilliseconds() - start, 1000u);
  EXPECT_TRUE(lock.busy);
}

TEST(openLockFile, waitsFiveSecondsForAnotherProcessAndThenGivesUp) {
  const TempDirectory directory;
  const TestChild holder(action::holdLock, {directory / L"state.lock", directory / L"held"});
  ASSERT_EQ(tests::waitForReport(directory / L"held").size(), 1u);
  LockFile lock;
  const std::uint64_t start = monotonicMilliseconds();

  EXPECT_FALSE(openLockFile(lock, directory / L"state.lock", LockWait::fiveSeconds));

  const std::uint64_t elapsed = monotonicMilliseconds() - start;
  EXPECT_GE(elapsed, 5000u);
  EXPECT_LT(elapsed, 6500u);
  EXPECT_TRUE(lock.busy);
}

TEST(openLockFile, takesALockThatIsReleasedWhileItWaits) {
  const TempDirectory directory;
  const TestChild holder(action::holdLock, {directory / L"state.lock", directory / L"held"});
  ASSERT_EQ(tests::waitForReport(directory / L"held").size(), 1u);
  std::thread releaser([&] {
    sleepMilliseconds(700);
    holder.kill();  // the end of a process releases its locks
  });
  LockFile lock;
  const std::uint64_t start = monotonicMilliseconds();

  EXPECT_TRUE(openLockFile(lock, directory / L"state.lock", LockWait::fiveSeconds));

  EXPECT_GE(monotonicMilliseconds() - start, 600u);
  releaser.join();
}

TEST(openLockFile, doesNotWaitForAnythingButASharingViolation) {
  const TempDirectory directory;
  struct Case {
    const char* why;
    std::wstring path;
  };
  const Case cases[] = {{"missing directory", directory / L"none\\state.lock"},
                        {"the path is a directory", directory.path()}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    LockFile lock;
    lock.busy = true;  // stale, from a failure before
    const std::uint64_t start = monotonicMilliseconds();
    EXPECT_FALSE(openLockFile(lock, c.path, LockWait::fiveSeconds));
    EXPECT_LT(monotonicMilliseconds() - start, 1000u);
    EXPECT_FALSE(lock.busy);
  }
}

TEST(closeLockFile, isHarmlessTwiceAndLeavesTheFile) {
  const TempDirectory directory;
  LockFile lock;
  ASSERT_TRUE(openLockFile(lock, directory / L"state.lock", LockWait::none));

  closeLockFile(lock);
  closeLockFile(lock);

  EXPECT_EQ(lock.handle, nullptr);
  EXPECT_TRUE(tests::exists(directory / L"state.lock"));
}

}  // namespace
}  // namespace launcher_stub::os
