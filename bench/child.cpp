// The runtime of the measurements: notes the time as its first act, reports ready where a launcher has started it, and
// ends when it is told to. Without anybody to tell it, it stays until it is ended.
//
// No run-time library stands before `firstAct`, and none is there to help.

#include <windows.h>

#include "bench/notes.h"

namespace {

constexpr DWORD longestPath = 1'024;

void append(wchar_t* path, const wchar_t* name) {
  while (*path != L'\0') ++path;
  do {
    *path++ = *name;
  } while (*name++ != L'\0');
}

// The attempt's own record names its slot and nonce, and so serves as the marker.
void reportReady() {
  static wchar_t record[longestPath];
  static wchar_t marker[longestPath];
  const DWORD length = GetEnvironmentVariableW(L"QUORVEX_BOOT_ATTEMPT_DIR", record, longestPath - 32);
  if (length == 0 || length >= longestPath - 32) return;
  GetEnvironmentVariableW(L"QUORVEX_BOOT_ATTEMPT_DIR", marker, longestPath - 32);
  append(record, L"\\boot-v1.json");
  append(marker, L"\\ready-v1");
  CopyFileW(record, marker, FALSE);
}

}  // namespace

extern "C" [[noreturn]] void firstAct();
extern "C" [[noreturn]] void firstAct() {
  LARGE_INTEGER first;
  QueryPerformanceCounter(&first);

  const HANDLE memory = OpenFileMappingW(FILE_MAP_WRITE, FALSE, bench::notesName);
  if (memory == nullptr) Sleep(INFINITE);
  auto* notes = static_cast<bench::Notes*>(MapViewOfFile(memory, FILE_MAP_WRITE, 0, 0, sizeof(bench::Notes)));
  const HANDLE begun = OpenEventW(EVENT_MODIFY_STATE, FALSE, bench::begunName);
  const HANDLE end = OpenEventW(SYNCHRONIZE, FALSE, bench::endName);
  if (notes == nullptr || begun == nullptr || end == nullptr) ExitProcess(1);

  notes->firstInstruction = first.QuadPart;
  reportReady();
  SetEvent(begun);
  WaitForSingleObject(end, INFINITE);

  LARGE_INTEGER last;
  QueryPerformanceCounter(&last);
  notes->lastInstruction = last.QuadPart;
  ExitProcess(0);
}
