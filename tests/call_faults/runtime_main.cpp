// The runtime that call-fault launches start. It has no run-time library, since thousands of it are started: what it
// needs comes from kernel32 alone. The file "script" beside it says what it does, a letter at a time, and ends in its
// exit code:
//   r  writes "ready-v1"       h  writes "healthy-v1"       q  writes "restart-v1.json", the first time only
//   g  starts a grandchild     w  tells that all is done, and waits to be told to end
#include <windows.h>

namespace {

constexpr DWORD failure = 99;        // something that the launch cannot be blamed for
constexpr DWORD longestMs = 60'000;  // of any life, should nobody end it
constexpr DWORD longest = 1024;      // code units of a path here

// No large frames: those need help from the library that is not there.
wchar_t directory[longest];
wchar_t attempt[longest];
wchar_t first[2 * longest];
wchar_t second[2 * longest];
char script[32];

void join(wchar_t* target, const wchar_t* left, const wchar_t* right) {
  lstrcpyW(target, left);
  lstrcatW(target, right);
}

void require(bool succeeded) {
  if (!succeeded) ExitProcess(failure);
}

HANDLE namedEvent(const wchar_t* what) {
  static wchar_t name[longest];
  require(GetEnvironmentVariableW(L"CALL_FAULTS_EVENTS", name, longest / 2) > 0);
  lstrcatW(name, what);
  HANDLE event = CreateEventW(nullptr, FALSE, FALSE, name);
  require(event != nullptr);
  return event;
}

void readScript() {
  join(first, directory, L"\\script");
  HANDLE file = CreateFileW(first, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  DWORD count = 0;
  require(file != INVALID_HANDLE_VALUE && ReadFile(file, script, sizeof script - 1, &count, nullptr));
  CloseHandle(file);
}

// A marker names its attempt with the very members of the attempt's record.
void writeMarker(const wchar_t* name) {
  join(first, attempt, L"\\boot-v1.json");
  join(second, attempt, name);
  require(CopyFileW(first, second, FALSE));
}

void askForRestartOnce() {
  join(first, directory, L"\\asked");
  HANDLE file = CreateFileW(first, GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return;
  CloseHandle(file);
  writeMarker(L"\\restart-v1.json");
}

void startGrandchild() {
  static STARTUPINFOW startup;
  static PROCESS_INFORMATION process;
  static wchar_t line[] = L"grandchild";
  startup.cb = sizeof startup;
  join(first, directory, L"\\entry-v1.exe");
  require(CreateProcessW(first, line, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process));
}

void waitForTheEnd() {
  HANDLE end = namedEvent(L"end");
  HANDLE settled = namedEvent(L"settled");
  SetEvent(settled);
  CloseHandle(settled);
  require(WaitForSingleObject(end, longestMs) == WAIT_OBJECT_0);
}

void carryOut(char letter) {
  switch (letter) {
    case 'r':
      return writeMarker(L"\\ready-v1");
    case 'h':
      return writeMarker(L"\\healthy-v1");
    case 'q':
      return askForRestartOnce();
    case 'g':
      return startGrandchild();
    case 'w':
      return waitForTheEnd();
    default:
      return;
  }
}

}  // namespace

extern "C" void beginRuntime();

extern "C" void beginRuntime() {
  if (lstrcmpW(GetCommandLineW(), L"grandchild") == 0) {
    // cppcheck-suppress leakReturnValNotUsed
    (void)namedEvent(L"grandchild");  // there as long as we are
    Sleep(longestMs);
    ExitProcess(0);
  }
  DWORD length = GetModuleFileNameW(nullptr, directory, longest / 2);
  while (length > 0 && directory[length] != L'\\') --length;
  directory[length] = 0;
  require(GetEnvironmentVariableW(L"QUORVEX_BOOT_ATTEMPT_DIR", attempt, longest / 2) > 0);
  readScript();
  UINT code = 0;
  for (const char* letter = script; *letter != 0; ++letter) {
    if (*letter >= '0' && *letter <= '9') {
      code = code * 10 + static_cast<UINT>(*letter - '0');
    } else {
      carryOut(*letter);
    }
  }
  ExitProcess(code);
}
