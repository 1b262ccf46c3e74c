// Says what a runtime finds when it looks around: its handles, its environment, its job. It shares no code with the
// launcher or the sample runtime, and everything that it can, it asks of the system itself.
//
// probe REPORT alone   reports its handles and environment, and ends
// probe REPORT end     also its job and that of processes which it starts; ends, and the launcher's run with it
// probe REPORT stay    the same, and stays until there is a file REPORT.finish
// probe sleep          does nothing for ten minutes
//
// The report's lines are "KEY TEXT":
//   pid ID
//   handle VALUE inheritable|own standard|other KIND ACCESS [NAME]   one for each handle at the start of the process
//   lease VALUE           what the environment names, or "none"
//   environment ENTRY     one for each, in the block's order
//   in-job yes|no
//   child ID in-job yes|no            a process started in the plain way
//   breakaway refused CODE            a process that was to leave the job was not created, or
//   breakaway created ID in-job yes|no   it was

#include <windows.h>

#include <shellapi.h>
#include <winternl.h>

#include <cstddef>
#include <string>
#include <vector>

namespace {

constexpr std::uintptr_t highestHandle = 16384;  // a fresh process has far fewer than 4096 handles

constexpr auto basicInformation = static_cast<OBJECT_INFORMATION_CLASS>(0);
constexpr auto nameInformation = static_cast<OBJECT_INFORMATION_CLASS>(1);
constexpr auto typeInformation = static_cast<OBJECT_INFORMATION_CLASS>(2);

std::string toUtf8(std::wstring_view wide) {
  const auto length = static_cast<int>(wide.size());
  std::string text(
      static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, nullptr, 0, nullptr, nullptr)),
      '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, text.data(), static_cast<int>(text.size()), nullptr, nullptr);
  return text;
}

using QueryObject = NTSTATUS NTAPI(HANDLE, OBJECT_INFORMATION_CLASS, void*, ULONG, ULONG*);

QueryObject* queryObject() {
  const auto address = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryObject");
  return reinterpret_cast<QueryObject*>(reinterpret_cast<void*>(address));
}

// The answer is a text's descriptor and, right behind it, what it points to.
std::string textOf(HANDLE handle, OBJECT_INFORMATION_CLASS what) {
  alignas(std::max_align_t) unsigned char buffer[4096] = {};
  ULONG size = 0;
  if (queryObject()(handle, what, buffer, sizeof buffer, &size) < 0) return "?";
  const auto* text = reinterpret_cast<const UNICODE_STRING*>(buffer);
  return toUtf8({text->Buffer, text->Length / sizeof(wchar_t)});
}

std::string accessOf(HANDLE handle) {
  PUBLIC_OBJECT_BASIC_INFORMATION basic = {};
  ULONG size = 0;
  if (queryObject()(handle, basicInformation, &basic, sizeof basic, &size) < 0) return "?";
  char text[16];
  snprintf(text, sizeof text, "0x%lx", basic.GrantedAccess);
  return text;
}

// Only files on a disk are asked for their names: the question can block at a pipe that another thread reads from.
std::string nameOf(HANDLE handle, const std::string& type) {
  if (type != "File") return textOf(handle, nameInformation);
  if (GetFileType(handle) != FILE_TYPE_DISK) return {};
  std::wstring path(32768, L'\0');
  path.resize(GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()), 0));
  return toUtf8(path);
}

std::string kindOf(HANDLE handle, const std::string& type) {
  if (type != "File") return type;
  switch (GetFileType(handle)) {
    case FILE_TYPE_DISK:
      return "File";
    case FILE_TYPE_PIPE:
      return "Pipe";
    default:
      return "Device";
  }
}

bool isStandard(HANDLE handle) {
  return handle == GetStdHandle(STD_INPUT_HANDLE) || handle == GetStdHandle(STD_OUTPUT_HANDLE) ||
         handle == GetStdHandle(STD_ERROR_HANDLE);
}

void reportHandles(std::string& report) {
  for (std::uintptr_t value = 4; value <= highestHandle; value += 4) {
    HANDLE handle = reinterpret_cast<HANDLE>(value);
    DWORD flags = 0;
    if (!GetHandleInformation(handle, &flags)) continue;
    const std::string type = textOf(handle, typeInformation);
    report += "handle " + std::to_string(value);
    report += (flags & HANDLE_FLAG_INHERIT) != 0 ? " inheritable" : " own";
    report += isStandard(handle) ? " standard " : " other ";
    report += kindOf(handle, type) + " " + accessOf(handle);
    const std::string name = nameOf(handle, type);
    report += (name.empty() ? "" : " ") + name + "\n";
  }
}

void reportEnvironment(std::string& report) {
  wchar_t lease[64] = {};
  const DWORD length = GetEnvironmentVariableW(L"QUORVEX_BOOT_LEASE", lease, 64);
  report += "lease " + (length == 0 ? std::string("none") : toUtf8({lease, length})) + "\n";
  wchar_t* block = GetEnvironmentStringsW();
  for (const wchar_t* entry = block; *entry != L'\0'; entry += wcslen(entry) + 1) {
    report += "environment " + toUtf8(entry) + "\n";
  }
  FreeEnvironmentStringsW(block);
}

std::string jobOf(HANDLE process) {
  BOOL inJob = FALSE;
  if (!IsProcessInJob(process, nullptr, &inJob)) return "in-job ?";
  return inJob ? "in-job yes" : "in-job no";
}

// Another copy of this program that sleeps; inherits nothing. Left running: whoever started the tree is to end it.
bool startSleeper(DWORD flags, PROCESS_INFORMATION& process) {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  std::wstring line = L"\"" + path + L"\" sleep";
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  return CreateProcessW(path.c_str(), line.data(), nullptr, nullptr, FALSE, flags, nullptr, nullptr, &startup,
                        &process) != FALSE;
}

void reportJob(std::string& report) {
  report += jobOf(GetCurrentProcess()) + "\n";
  PROCESS_INFORMATION child = {};
  if (startSleeper(0, child)) {
    report += "child " + std::to_string(child.dwProcessId) + " " + jobOf(child.hProcess) + "\n";
  }
  PROCESS_INFORMATION leaver = {};
  if (startSleeper(CREATE_BREAKAWAY_FROM_JOB, leaver)) {
    report += "breakaway created " + std::to_string(leaver.dwProcessId) + " " + jobOf(leaver.hProcess) + "\n";
  } else {
    report += "breakaway refused " + std::to_string(GetLastError()) + "\n";
  }
}

void writeWhole(const std::wstring& path, const std::string& content) {
  const std::wstring part = path + L".part";
  HANDLE file = CreateFileW(part.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  DWORD written = 0;
  WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written, nullptr);
  CloseHandle(file);
  MoveFileExW(part.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING);
}

// Whatever it says, a restart request makes this end a normal one, and an empty one asks for nothing.
void leaveRestartRequest() {
  wchar_t attempt[32768] = {};
  if (GetEnvironmentVariableW(L"QUORVEX_BOOT_ATTEMPT_DIR", attempt, 32768) == 0) return;
  writeWhole(std::wstring(attempt) + L"\\restart-v1.json", {});
}

void awaitFile(const std::wstring& path) {
  for (int tries = 0; tries < 30'000 && GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES; ++tries) Sleep(20);
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
  std::string report;
  reportHandles(report);  // before anything here opens one
  int count = 0;
  wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
  const std::wstring first = count > 1 ? arguments[1] : L"";
  const std::wstring second = count > 2 ? arguments[2] : L"";
  if (first == L"sleep") Sleep(600'000);
  if (count != 3) return 64;

  report += "pid " + std::to_string(GetCurrentProcessId()) + "\n";
  reportEnvironment(report);
  if (second != L"alone") reportJob(report);
  writeWhole(first, report);
  if (second == L"stay") awaitFile(first + L".finish");
  leaveRestartRequest();
  return 0;
}
