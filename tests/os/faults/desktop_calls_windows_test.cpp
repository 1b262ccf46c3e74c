// What the system is asked for on the user's desktop, and that nothing else hangs on its answers. Wine shows no
// "starting" cursor and keeps no right to the front, so the calls are all that can be seen there.

#include "os/desktop.h"

#include <gtest/gtest.h>

#include "tests/os/faults/child_start_test.h"
#include "tests/support/standard_error_capture.h"

namespace launcher_stub::os {
namespace {

using namespace launcher_stub::tests;

using Calls = std::vector<std::string>;

BOOL refuses() {
  SetLastError(ERROR_ACCESS_DENIED);
  return FALSE;
}

class DesktopCallsTest : public ChildStartTest {
 protected:
  void recordCalls() {
    watchAllowSetForegroundWindow = [this](auto...) { calls_.emplace_back("allow"); };
    watchPostMessageW = [this](auto...) { calls_.emplace_back("post"); };
    watchGetMessageW = [this](auto...) { calls_.emplace_back("get"); };
    watchAssignProcessToJobObject = [this](auto...) { calls_.emplace_back("assign"); };
    watchResumeThread = [this](auto...) { calls_.emplace_back("resume"); };
  }
  Calls calls_;
};

TEST_F(DesktopCallsTest, theChildMayComeToTheFrontBeforeItRunsAndTheCursorGoesAfterThat) {
  recordCalls();

  EXPECT_TRUE(start());

  EXPECT_EQ(calls_, (Calls{"assign", "allow", "resume", "post", "get"}));
}

TEST_F(DesktopCallsTest, itIsTheChildThatMayComeToTheFrontAndNobodyElse) {
  std::vector<DWORD> allowed;
  watchAllowSetForegroundWindow = [&](DWORD process) { allowed.push_back(process); };

  EXPECT_TRUE(start());

  EXPECT_EQ(allowed, std::vector<DWORD>{GetProcessId(child_.process.get())});
}

TEST_F(DesktopCallsTest, theCursorGoesByAnEmptyMessageOfThisThreadTakenFromItsQueue) {
  watchPostMessageW = [](HWND window, UINT message, WPARAM first, LPARAM second) {
    EXPECT_EQ(window, nullptr) << "no window: the queue of this thread";
    EXPECT_EQ(message, UINT{WM_NULL});
    EXPECT_TRUE(first == 0 && second == 0);
  };
  int taken = 0;
  watchGetMessageW = [&](LPMSG message, HWND window, UINT lowest, UINT highest) {
    ++taken;
    EXPECT_NE(message, nullptr);
    EXPECT_TRUE(window == nullptr && lowest == 0 && highest == 0) << "any message";
  };

  endStartingCursor();

  EXPECT_EQ(taken, 1);
  MSG left{};
  EXPECT_FALSE(PeekMessageW(&left, nullptr, 0, 0, PM_REMOVE)) << "its own message is gone from the queue";
}

// With an empty queue it would be waited for a message for ever.
TEST_F(DesktopCallsTest, noMessageIsTakenWhereNoneCouldBePosted) {
  recordCalls();
  fakePostMessageW = refuses;
  fakeGetMessageW = [] { return TRUE; };  // so that the test ends even so

  EXPECT_TRUE(start());

  EXPECT_EQ(calls_, (Calls{"assign", "allow", "resume", "post"}));
}

TEST_F(DesktopCallsTest, aRefusalChangesNothingAndIsNotSpokenOf) {
  struct Case {
    const char* why;
    std::function<void()> refuse;
  };
  const Case cases[] = {
      {"not to the front", [] { fakeAllowSetForegroundWindow = refuses; }},
      {"no message posted",
       [] {
         fakePostMessageW = refuses;
         fakeGetMessageW = [] { return TRUE; };
       }},
      {"the message cannot be taken",
       [] {
         fakePostMessageW = [] { return TRUE; };
         fakeGetMessageW = [] { return BOOL{-1}; };
       }},
      {"asked to quit instead",
       [] {
         fakePostMessageW = [] { return TRUE; };
         fakeGetMessageW = [] { return FALSE; };
       }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    forgetFakes();
    c.refuse();
    const StandardErrorCapture errors;

    EXPECT_TRUE(start());

    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(WaitForSingleObject(child_.process.get(), 20'000), DWORD{WAIT_OBJECT_0}) << "it runs, and ends by itself";
    EXPECT_TRUE(endProcessTree(child_));
    resetChild(child_);
  }
}

// The right to the front is not to be given away for nothing, and a process that has started nothing is still starting.
TEST_F(DesktopCallsTest, aStartThatFailsGoesOnlyAsFarAsItGets) {
  struct Case {
    const char* why;
    std::function<void()> breakIt;
    Calls calls;
  };
  const Case cases[] = {
      {"no process", [] { fakeCreateProcessW = refuses; }, {}},
      {"no job", [] { fakeCreateJobObjectW = [] { return HANDLE{}; }; }, {}},
      {"not in its job", [] { fakeAssignProcessToJobObject = refuses; }, {"assign"}},
      {"not resumed", [] { fakeResumeThread = [] { return static_cast<DWORD>(-1); }; }, {"assign", "allow", "resume"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    forgetFakes();
    calls_.clear();
    recordCalls();
    c.breakIt();
    const StandardErrorCapture errors;

    EXPECT_FALSE(start());

    EXPECT_EQ(calls_, c.calls);
  }
}

TEST_F(DesktopCallsTest, atLogOffThisProcessHasTheLowestLevelOfAllPrograms) {
  DWORD before = 0;
  DWORD flags = 0;
  ASSERT_TRUE(GetProcessShutdownParameters(&before, &flags));
  EXPECT_EQ(before, 0x280U) << "what the runtime keeps, for no process inherits its level";
  std::vector<std::pair<DWORD, DWORD>> set;
  watchSetProcessShutdownParameters = [&](DWORD level, DWORD with) { set.emplace_back(level, with); };

  outlastOthersAtLogOff();

  EXPECT_EQ(set, (std::vector<std::pair<DWORD, DWORD>>{{0x100, 0}}));
  DWORD after = 0;
  EXPECT_TRUE(GetProcessShutdownParameters(&after, &flags));
  EXPECT_EQ(after, 0x100U);
  EXPECT_EQ(flags, 0U);
  EXPECT_TRUE(SetProcessShutdownParameters(before, 0));
}

TEST_F(DesktopCallsTest, aLevelThatIsRefusedIsNotSpokenOf) {
  fakeSetProcessShutdownParameters = refuses;
  const StandardErrorCapture errors;

  outlastOthersAtLogOff();

  EXPECT_EQ(errors.text(), "");
}

}  // namespace
}  // namespace launcher_stub::os
