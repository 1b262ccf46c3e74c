#include "tests/end_to_end/error_window.h"

#include <windows.h>

#include <stdexcept>

namespace end_to_end {
namespace {

// Text of a window of another process, which GetWindowText does not fetch for controls.
std::wstring textOf(HWND window) {
  constexpr UINT limitMs = 5'000;
  wchar_t text[4096] = {};
  DWORD_PTR length = 0;
  SendMessageTimeoutW(window, WM_GETTEXT, 4096, reinterpret_cast<LPARAM>(text), SMTO_ABORTIFHUNG, limitMs, &length);
  return text;
}

std::wstring classOf(HWND window) {
  wchar_t name[64] = {};
  GetClassNameW(window, name, 64);
  return name;
}

BOOL CALLBACK addControl(HWND control, LPARAM target) {
  auto* window = reinterpret_cast<ErrorWindow*>(target);
  const std::wstring kind = classOf(control);
  const std::wstring text = textOf(control);
  if (kind == L"Button") window->buttons.push_back(text);
  if (kind == L"Static" && !text.empty()) window->text += text;  // the other one shows the icon
  return TRUE;
}

struct Search {
  DWORD processId;
  std::vector<ErrorWindow> found;
};

BOOL CALLBACK addWindow(HWND window, LPARAM target) {
  auto* search = reinterpret_cast<Search*>(target);
  DWORD owner = 0;
  GetWindowThreadProcessId(window, &owner);
  if (owner != search->processId || !IsWindowVisible(window)) return TRUE;
  ErrorWindow found{.window = window, .title = textOf(window), .text = {}, .buttons = {}};
  EnumChildWindows(window, addControl, reinterpret_cast<LPARAM>(&found));
  search->found.push_back(found);
  return TRUE;
}

BOOL CALLBACK pressFirstButton(HWND control, LPARAM) {
  if (classOf(control) != L"Button") return TRUE;
  PostMessageW(control, BM_CLICK, 0, 0);
  return FALSE;
}

}  // namespace

void requireDesktop() {
  HWND window = CreateWindowExW(0, L"Static", L"", WS_OVERLAPPED, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr);
  if (window == nullptr) {
    throw std::runtime_error(
        "no desktop: this test opens a window. Under Wine, set DISPLAY to a running X server (xvfb-run does) before "
        "the first program of a session starts: a desktop that came up without one stays as it is");
  }
  DestroyWindow(window);
}

std::vector<ErrorWindow> windowsOf(std::uint32_t processId) {
  Search search{processId, {}};
  EnumWindows(addWindow, reinterpret_cast<LPARAM>(&search));
  return search.found;
}

ErrorWindow waitForWindow(const Process& process) {
  std::vector<ErrorWindow> windows;
  waitUntil([&] {
    windows = windowsOf(process.id());
    return !process.isRunning() || (!windows.empty() && !windows.front().buttons.empty());
  });
  if (windows.empty()) {
    throw std::runtime_error(process.isRunning() ? "no window has come up" : "the process ended without a window");
  }
  return windows.front();
}

void pressButton(const ErrorWindow& box) { EnumChildWindows(static_cast<HWND>(box.window), pressFirstButton, 0); }

void closeWindow(const ErrorWindow& box) { PostMessageW(static_cast<HWND>(box.window), WM_CLOSE, 0, 0); }

}  // namespace end_to_end
