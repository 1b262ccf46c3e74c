#include "window.h"

#include <windows.h>

namespace sample_runtime {
namespace {

constexpr wchar_t className[] = L"sample runtime";
constexpr UINT_PTR limitTimer = 1;

// The window's user data: whether it ignores WM_CLOSE.
LRESULT CALLBACK answer(HWND window, UINT message, WPARAM first, LPARAM second) {
  if (message == WM_CLOSE && GetWindowLongPtrW(window, GWLP_USERDATA) != 0) return 0;
  if (message == WM_TIMER && first == limitTimer) DestroyWindow(window);
  if (message == WM_DESTROY) PostQuitMessage(0);
  return DefWindowProcW(window, message, first, second);
}

}  // namespace

bool showWindowUntilClosed(std::uint32_t limit, bool ignoresClose) {
  WNDCLASSW description = {};
  description.lpfnWndProc = answer;
  description.hInstance = GetModuleHandleW(nullptr);
  description.lpszClassName = className;
  (void)RegisterClassW(&description);  // a second window of the same script finds it there
  HWND window = CreateWindowExW(0, className, className, WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 200, 100, nullptr,
                                nullptr, description.hInstance, nullptr);
  if (window == nullptr) return false;
  SetWindowLongPtrW(window, GWLP_USERDATA, ignoresClose ? 1 : 0);
  SetTimer(window, limitTimer, limit, nullptr);
  MSG message = {};
  while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
  return true;
}

}  // namespace sample_runtime
