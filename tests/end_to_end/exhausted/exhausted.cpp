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

}  // namespace

// In the place of the run-time library's and the system's functions, for all that is linked here; both ways in which
// code may call them are covered.
extern "C" {

void* malloc(std::size_t size) {
  if (piecesLeft == 0) return nullptr;
  if (piecesLeft != unlimited) --piecesLeft;
  return HeapAlloc(GetProcessHeap(), 0, size);
}

void free(void* memory) {
  if (memory != nullptr) HeapFree(GetProcessHeap(), 0, memory);
}

BOOLEAN NTAPI SystemFunction036(void* bytes, ULONG count);

BOOLEAN NTAPI SystemFunction036(void* bytes, ULONG count) {
  if (!hasRandomness) return FALSE;
  for (ULONG index = 0; index < count; ++index) static_cast<unsigned char*>(bytes)[index] = 0x5a;  // enough for a test
  return TRUE;
}

void* __imp_malloc = reinterpret_cast<void*>(&malloc);
void* __imp_free = reinterpret_cast<void*>(&free);
void* __imp_SystemFunction036 = reinterpret_cast<void*>(&SystemFunction036);

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previousInstance, LPWSTR commandLine, int showCommand) {
  wchar_t what[32] = L"";
  GetEnvironmentVariableW(L"LAUNCHER_EXHAUSTED", what, 32);
  hasRandomness = std::wcscmp(what, L"randomness") != 0;
  if (hasRandomness) piecesLeft = std::wcstol(what, nullptr, 10);
  return launcherEntryPoint(instance, previousInstance, commandLine, showCommand);
}
}
