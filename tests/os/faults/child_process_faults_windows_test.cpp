// Starts and ends of a child when the system refuses. On a healthy Windows none of these calls fails.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "os/text.h"
#include "tests/os/faults/child_start_test.h"
#include "tests/support/standard_error_capture.h"

namespace launcher_stub::os {
namespace {

using namespace launcher_stub::tests;

using StartFaultTest = ChildStartTest;

BOOL failsWith(DWORD code) {
  SetLastError(code);
  return FALSE;
}

TEST_F(StartFaultTest, saysThatTheHandleListCannotBeBuilt) {
  fakeUpdateProcThreadAttribute = [] { return failsWith(1450); };
  fakeCreateProcessW = []() -> BOOL { throw std::logic_error("no process is to be created"); };
  const StandardErrorCapture errors;

  EXPECT_FALSE(start());

  EXPECT_EQ(errors.text(), "cannot build the handle list: Win32 error 1450\n");
}

TEST_F(StartFaultTest, takesAnEnvironmentThatCannotBeReadForAFailedStart) {
  fakeGetEnvironmentStringsW = []() -> LPWCH {
    SetLastError(8);
    return nullptr;
  };
  fakeCreateProcessW = []() -> BOOL { throw std::logic_error("no process is to be created"); };
  const StandardErrorCapture errors;

  EXPECT_FALSE(start());

  EXPECT_EQ(errors.text(), "cannot start " + toUtf8(executable_) + ": Win32 error 8\n");
}

TEST_F(StartFaultTest, endsTheSuspendedChildWhateverStepOfItsJobFails) {
  struct Case {
    const char* why;
    std::function<void()> breakIt;
  };
  const Case cases[] = {
      {"no job", [] { fakeCreateJobObjectW = [] { return HANDLE{}; }; }},
      {"no limit", [] { fakeSetInformationJobObject = [](LPVOID) { return failsWith(5); }; }},
      {"not assigned", [] { fakeAssignProcessToJobObject = [] { return failsWith(5); }; }},
      {"not resumed", [] { fakeResumeThread = [] { return static_cast<DWORD>(-1); }; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    forgetFakes();
    c.breakIt();
    const StandardErrorCapture errors;

    EXPECT_FALSE(start());

    EXPECT_EQ(errors.text(), "cannot create child job\n");
    EXPECT_EQ(terminatedWith, std::vector<UINT>{1});
    EXPECT_FALSE(child_.process);
    EXPECT_FALSE(child_.job);
  }
}

TEST_F(StartFaultTest, asksForAJobThatKillsOnClose) {
  DWORD flags = 0;
  fakeSetInformationJobObject = [&flags](LPVOID information) {
    flags = static_cast<JOBOBJECT_EXTENDED_LIMIT_INFORMATION*>(information)->BasicLimitInformation.LimitFlags;
    return TRUE;
  };

  EXPECT_TRUE(start());

  EXPECT_EQ(flags, 0x2000u);
  fakeSetInformationJobObject = nullptr;
  EXPECT_TRUE(endProcessTree(child_));
}

TEST_F(StartFaultTest, givesATreeThirtySecondsToEndAndNoMoreAtTheNextTry) {
  ASSERT_TRUE(start());
  int terminated = 0;
  fakeTerminateJobObject = [&terminated](UINT code) {
    EXPECT_EQ(code, 1u);
    ++terminated;
    return TRUE;
  };
  fakeQueryInformationJobObject = [](LPVOID information) {
    static_cast<JOBOBJECT_BASIC_ACCOUNTING_INFORMATION*>(information)->ActiveProcesses = 1;
    return TRUE;
  };
  const FakeTime time;

  EXPECT_FALSE(endProcessTree(child_));

  EXPECT_TRUE(child_.waitFailed);
  EXPECT_EQ(time.sleeps(), std::vector<DWORD>(60, 500));
  EXPECT_EQ(terminated, 61);
  EXPECT_FALSE(endProcessTree(child_));
  EXPECT_EQ(time.slept(), 30'000u) << "the second try shares the first one's time";
  forgetFakes();
  EXPECT_TRUE(endProcessTree(child_));
}

}  // namespace
}  // namespace launcher_stub::os
