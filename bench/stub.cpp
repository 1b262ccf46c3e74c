// What the launcher is measured against: starts "entry-v1.exe" beside itself, waits for it and returns its exit code.

#include <windows.h>

#include <shellapi.h>

#include <algorithm>
#include <string_view>

#ifndef BENCH_KERNEL_ONLY
// Never called; the system loads their libraries before the first instruction, as it does for the launcher.
__attribute__((used)) volatile void* const otherLibraries[] = {reinterpret_cast<void*>(&OpenProcessToken),
                                                               reinterpret_cast<void*>(&CommandLineToArgvW),
                                                               reinterpret_cast<void*>(&MessageBoxW)};
#endif

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int) {
  constexpr std::wstring_view entry = L"entry-v1.exe";
  static wchar_t path[32'768];
  const std::wstring_view own(path, GetModuleFileNameW(nullptr, path, 32'000));
  *std::copy(entry.begin(), entry.end(), path + own.find_last_of(L'\\') + 1) = L'\0';

  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION child{};
  if (!CreateProcessW(path, nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &child)) return 1;
  WaitForSingleObject(child.hProcess, INFINITE);
  DWORD code = 1;
  GetExitCodeProcess(child.hProcess, &code);
  return static_cast<int>(code);
}
