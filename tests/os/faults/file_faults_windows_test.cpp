// State files and locks when the system refuses, with time that moves only by what is slept.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "os/durable_file.h"
#include "os/lock_file.h"
#include "tests/os/faults/replaced_calls.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::os {
namespace {

using namespace launcher_stub::tests;

using Names = std::vector<std::wstring>;

class FileFaultTest : public testing::Test {
 protected:
  FileFaultTest() { writeFile(target_, "old"); }
  void TearDown() override { forgetFakes(); }

  void expectUntouched() {
    forgetFakes();
    EXPECT_EQ(readFile(target_), "old");
    EXPECT_EQ(namesIn(directory_.path()), Names{L"boot-v1.json"}) << "no temporary file is left";
  }

  const TempDirectory directory_;
  const std::wstring target_ = directory_ / L"boot-v1.json";
};

BOOL failsWith(DWORD code) {
  SetLastError(code);
  return FALSE;
}

TEST_F(FileFaultTest, aReplacementGivesUpAtOnceWhereTheBytesAreNotOnTheDisk) {
  struct Case {
    const char* why;
    std::function<void()> breakIt;
  };
  const Case cases[] = {
      {"no write", [] { fakeWriteFile = [](LPDWORD) { return failsWith(112); }; }},
      {"a write of nothing",
       [] {
         fakeWriteFile = [](LPDWORD written) {
           *written = 0;
           return TRUE;
         };
       }},
      {"no flush", [] { fakeFlushFileBuffers = [] { return failsWith(1117); }; }},
      {"a rename that no waiting helps", [] { fakeMoveFileExW = [] { return failsWith(112); }; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    c.breakIt();
    const FakeTime time;

    EXPECT_FALSE(replaceFileDurably(target_, "new"));

    EXPECT_EQ(time.sleeps(), std::vector<DWORD>{});
    expectUntouched();
  }
}

TEST_F(FileFaultTest, aReplacementFailsWhereTheFileCannotBeClosed) {
  bool flushed = false;
  fakeFlushFileBuffers = [&flushed] {
    flushed = true;
    fakeCloseHandle = [](HANDLE file) {
      reallyCloseHandle(file);
      return failsWith(1117);
    };
    return TRUE;
  };

  EXPECT_FALSE(replaceFileDurably(target_, "new"));

  EXPECT_TRUE(flushed);
  expectUntouched();
}

TEST_F(FileFaultTest, aRenameThatIsRefusedIsTriedEveryFiftyMillisecondsForTwoSeconds) {
  for (const DWORD code : {DWORD{32}, DWORD{5}}) {
    SCOPED_TRACE(code);
    int tries = 0;
    fakeMoveFileExW = [&tries, code] {
      ++tries;
      return failsWith(code);
    };
    const FakeTime time;

    EXPECT_FALSE(replaceFileDurably(target_, "new"));

    EXPECT_EQ(time.sleeps(), std::vector<DWORD>(40, 50));
    EXPECT_EQ(tries, 41);
    expectUntouched();
  }
}

TEST_F(FileFaultTest, aRenameThatIsRefusedForAMomentSucceeds) {
  int tries = 0;
  fakeMoveFileExW = [&tries] { return ++tries < 38 ? failsWith(32) : TRUE; };
  const FakeTime time;

  EXPECT_TRUE(replaceFileDurably(target_, "new"));

  EXPECT_EQ(time.slept(), 37u * 50u);
}

TEST_F(FileFaultTest, aHeldLockIsTriedEveryFiftyMillisecondsForFiveSeconds) {
  LockFile held;
  ASSERT_TRUE(openLockFile(held, directory_ / L"state.lock", LockWait::none));
  LockFile lock;
  const FakeTime time;

  EXPECT_FALSE(openLockFile(lock, directory_ / L"state.lock", LockWait::fiveSeconds));

  EXPECT_TRUE(lock.busy);
  EXPECT_EQ(time.sleeps(), std::vector<DWORD>(100, 50));
}

}  // namespace
}  // namespace launcher_stub::os
