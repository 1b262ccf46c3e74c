// launcher.exe, on a system that has run out of something. LAUNCHER_EXHAUSTED in its environment says of what:
// "randomness", or after how many more pieces of memory none is left.
//
// The entry point is the real one under another name.

#include <windows.h>

#include <cstdlib>
#include <cwchar>

extern "C" int launcherEntryPoint(void* instance, void* previousInstance, wchar_t* commandLine, int showCommand);

namespace {

constexpr long unlimited = -1;
long piecesLeft = unlimited;
bool hasRandomness = true;

// The library of the random source is looked up by this.
HMODULE WINAPI moduleHandle(LPCWSTR name) {
  HMODULE library = nullptr;
  if (hasRandomness) GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT, name, &library);
  return library;
}

}  // namespace

// In the place of the run-time library's and the system's functions, for all that is linked here, in both of the ways
// in which code may call them.
extern "C" {

void* malloc(std::size_t size) {
  if (piecesLeft == 0) return nullptr;
  if (piecesLeft != unlimited) --piecesLeft;
  return HeapAlloc(GetProcessHeap(), 0, size);
}

void free(void* memory) {
  if (memory != nullptr) HeapFree(GetProcessHeap(), 0, memory);
}

void* __imp_malloc = reinterpret_cast<void*>(&malloc);
void* __imp_free = reinterpret_cast<void*>(&free);
void* __imp_GetModuleHandleW = reinterpret_cast<void*>(&moduleHandle);

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previousInstance, LPWSTR commandLine, int showCommand) {
  wchar_t what[32] = L"";
  GetEnvironmentVariableW(L"LAUNCHER_EXHAUSTED", what, 32);
  hasRandomness = std::wcscmp(what, L"randomness") != 0;
  if (hasRandomness) piecesLeft = std::wcstol(what, nullptr, 10);
  return launcherEntryPoint(instance, previousInstance, commandLine, showCommand);
}
}
