#include "os/error_box.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <thread>

#include "launcher/process_end.h"
#include "os/clock.h"
#include "os/text.h"
#include "tests/os/test_child.h"
#include "tests/support/standard_error_capture.h"
#include "tests/support/windows_temp_directory.h"

// These tests show real windows and need a display: on Linux run them under xvfb-run. Without one they fail.

namespace launcher_stub::os {
namespace {

namespace action = tests::action;
using tests::TempDirectory;
using tests::TestChild;

constexpr char noDisplay[] = "no box was seen; is there a display (xvfb-run)?";

std::wstring textOf(HWND window) {
  std::wstring text(4096, L'\0');
  text.resize(static_cast<std::size_t>(GetWindowTextW(window, text.data(), static_cast<int>(text.size()))));
  return text;
}

std::wstring classOf(HWND window) {
  wchar_t name[64] = {};
  GetClassNameW(window, name, 64);
  return name;
}

// The visible dialogs of a process.
std::vector<HWND> boxesOf(std::uint32_t process) {
  struct Search {
    std::uint32_t process;
    std::vector<HWND> found;
  } search{process, {}};
  EnumWindows(
      [](HWND window, LPARAM parameter) -> BOOL {
        auto& wanted = *reinterpret_cast<Search*>(parameter);
        DWORD owner = 0;
        GetWindowThreadProcessId(window, &owner);
        if (owner == wanted.process && IsWindowVisible(window) && classOf(window) == L"#32770") {
          wanted.found.push_back(window);
        }
        return TRUE;
      },
      reinterpret_cast<LPARAM>(&search));
  return search.found;
}

// Waits for the first box of a process; null after 20 s.
HWND awaitBox(std::uint32_t process) {
  for (int tries = 0; tries < 400; ++tries) {
    const std::vector<HWND> boxes = boxesOf(process);
    if (!boxes.empty()) return boxes.front();
    Sleep(50);
  }
  return nullptr;
}

// What the box says: the text of its one static control that has any.
std::wstring messageOf(HWND box) {
  std::wstring message;
  EnumChildWindows(
      box,
      [](HWND control, LPARAM parameter) -> BOOL {
        if (classOf(control) == L"Static" && (GetWindowLongW(control, GWL_STYLE) & SS_TYPEMASK) != SS_ICON) {
          *reinterpret_cast<std::wstring*>(parameter) += textOf(control);
        }
        return TRUE;
      },
      reinterpret_cast<LPARAM>(&message));
  return message;
}

std::vector<std::wstring> buttonsOf(HWND box) {
  std::vector<std::wstring> buttons;
  EnumChildWindows(
      box,
      [](HWND control, LPARAM parameter) -> BOOL {
        if (classOf(control) == L"Button" && IsWindowVisible(control)) {
          reinterpret_cast<std::vector<std::wstring>*>(parameter)->push_back(textOf(control));
        }
        return TRUE;
      },
      reinterpret_cast<LPARAM>(&buttons));
  return buttons;
}

void pressOk(HWND box) { PostMessageW(box, WM_COMMAND, IDOK, 0); }

TEST(errorBox, showsTitleTextAndOneButton) {
  const TempDirectory directory;
  const TestChild child(action::showErrors, {L"1", L"state lock timeout \u0416"}, directory / L"stderr");

  HWND box = awaitBox(child.id());
  ASSERT_NE(box, nullptr) << noDisplay;
  EXPECT_EQ(textOf(box), L"Plinket launcher");
  EXPECT_EQ(messageOf(box), L"state lock timeout \u0416");
  EXPECT_EQ(buttonsOf(box).size(), 1u);
  EXPECT_EQ(GetWindow(box, GW_OWNER), nullptr);
  EXPECT_EQ(tests::readFile(directory / L"stderr"), "state lock timeout \xD0\x96\n");

  pressOk(box);
  EXPECT_EQ(child.waitForExit(20'000), 1u);
}

TEST(errorBox, keepsTheProcessAliveUntilItIsClosedWhateverTheExitCode) {
  for (const std::uint32_t code : {0u, 7u}) {
    SCOPED_TRACE(code);
    const TestChild child(action::showErrors, {std::to_wstring(code), L"message"});
    HWND box = awaitBox(child.id());
    ASSERT_NE(box, nullptr) << noDisplay;

    EXPECT_EQ(child.waitForExit(1'500), std::nullopt);

    pressOk(box);
    EXPECT_EQ(child.waitForExit(20'000), code);
  }
}

TEST(errorBox, isShownForTheFirstErrorOnly) {
  const TempDirectory directory;
  const TestChild child(action::showErrors, {L"1", L"first", L"second", L"third"}, directory / L"stderr");
  HWND box = awaitBox(child.id());
  ASSERT_NE(box, nullptr) << noDisplay;
  Sleep(1'000);  // time for another one to come up

  EXPECT_EQ(boxesOf(child.id()).size(), 1u);
  EXPECT_EQ(messageOf(box), L"first");
  EXPECT_EQ(tests::readFile(directory / L"stderr"), "first\nsecond\nthird\n");

  pressOk(box);
  EXPECT_EQ(child.waitForExit(20'000), 1u);
}

TEST(errorBox, staysTheOnlyOneAfterItWasClosed) {
  const tests::StandardErrorCapture capture;
  showError("first");
  HWND box = awaitBox(GetCurrentProcessId());
  ASSERT_NE(box, nullptr) << noDisplay;
  pressOk(box);
  waitForErrorBox(20'000);

  showError("second");
  Sleep(1'000);

  EXPECT_TRUE(boxesOf(GetCurrentProcessId()).empty());
  EXPECT_EQ(capture.text(), "first\nsecond\n");
  resetErrorBoxForTests();
}

TEST(errorBox, isEmptyForTextThatIsNotUtf8) {
  const tests::StandardErrorCapture capture;
  showError("broken \xD0");
  HWND box = awaitBox(GetCurrentProcessId());
  ASSERT_NE(box, nullptr) << noDisplay;

  EXPECT_EQ(messageOf(box), L"");
  EXPECT_EQ(capture.text(), "broken \xD0\n") << "the line goes out as it is";

  pressOk(box);
  resetErrorBoxForTests();
}

TEST(waitForErrorBox, endsWithTheBoxOrAfterTheTimeout) {
  const tests::StandardErrorCapture capture;
  const std::uint64_t start = monotonicMilliseconds();
  showError("message");
  EXPECT_LT(monotonicMilliseconds() - start, 1'000u) << "the caller goes on at once";
  HWND box = awaitBox(GetCurrentProcessId());
  ASSERT_NE(box, nullptr) << noDisplay;

  const std::uint64_t beforeWait = monotonicMilliseconds();
  waitForErrorBox(700);
  const std::uint64_t waited = monotonicMilliseconds() - beforeWait;
  EXPECT_GE(waited, 690u);
  EXPECT_LT(waited, 5'000u);

  pressOk(box);
  const std::uint64_t beforeClosing = monotonicMilliseconds();
  waitForErrorBox(30'000);
  EXPECT_LT(monotonicMilliseconds() - beforeClosing, 20'000u);
  resetErrorBoxForTests();
}

TEST(waitForErrorBox, returnsAtOnceWhereThereWasNone) {
  resetErrorBoxForTests();
  const std::uint64_t start = monotonicMilliseconds();
  waitForErrorBox(30'000);
  EXPECT_LT(monotonicMilliseconds() - start, 1'000u);
}

TEST(endRun, returnsItsResultAtOnceWhereNoBoxWasShown) {
  resetErrorBoxForTests();
  const std::uint64_t start = monotonicMilliseconds();
  EXPECT_EQ(endRun(0), 0);
  EXPECT_EQ(endRun(7), 7);
  EXPECT_LT(monotonicMilliseconds() - start, 1'000u);
}

TEST(endRun, waitsForAnOpenBoxOnlyWhenTheResultIsNotZero) {
  const tests::StandardErrorCapture capture;
  showError("message");
  HWND box = awaitBox(GetCurrentProcessId());
  ASSERT_NE(box, nullptr) << noDisplay;

  const std::uint64_t start = monotonicMilliseconds();
  EXPECT_EQ(endRun(0), 0);
  EXPECT_LT(monotonicMilliseconds() - start, 1'000u);
  std::thread user([&] {
    sleepMilliseconds(800);
    pressOk(box);
  });
  EXPECT_EQ(endRun(7), 7);
  EXPECT_GE(monotonicMilliseconds() - start, 700u);

  user.join();
  resetErrorBoxForTests();
}

}  // namespace
}  // namespace launcher_stub::os
