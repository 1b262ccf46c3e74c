// A library that leaves a trace of being loaded: an empty file beside itself, ".loaded" behind its name.
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE library, DWORD reason, LPVOID /*reserved*/);

extern "C" BOOL WINAPI DllMain(HINSTANCE library, DWORD reason, LPVOID /*reserved*/) {
  if (reason != DLL_PROCESS_ATTACH) return TRUE;
  wchar_t path[MAX_PATH + 8] = L"";
  if (GetModuleFileNameW(library, path, MAX_PATH) == 0) return TRUE;
  lstrcatW(path, L".loaded");
  const HANDLE trace = CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (trace != INVALID_HANDLE_VALUE) CloseHandle(trace);
  return TRUE;
}
