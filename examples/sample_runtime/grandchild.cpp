#include "grandchild.h"

#include <windows.h>

#include "handles.h"
#include "journal.h"
#include "script.h"
#include "text.h"

namespace sample_runtime {
namespace {

constexpr wchar_t marker[] = L"--sample-runtime-grandchild";

// Paths end in no backslash and hold no quotes, so plain quotes do.
std::wstring quoted(const std::wstring& text) { return L" \"" + text + L"\""; }

}  // namespace

std::uint32_t startGrandchild(std::uint32_t duration, const std::wstring& heldFile) {
  const std::wstring executable = executableDirectory() + L"\\entry-v1.exe";
  std::wstring commandLine = L"entry-v1.exe " + std::wstring(marker) + L" " + std::to_wstring(duration) +
                             quoted(journalPath()) + quoted(heldFile);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  // With inheritance on, so that the log shows whether the lease is kept back.
  if (!CreateProcessW(executable.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                      &process)) {
    return 0;
  }
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return process.dwProcessId;
}

bool isGrandchild(const std::vector<std::wstring>& arguments) {
  return arguments.size() == 4 && arguments[0] == marker;
}

int runGrandchild(const std::vector<std::wstring>& arguments) {
  const std::vector<HandleFound> handles = probeHandles(1024);
  setJournal(arguments[2]);
  for (const HandleFound& handle : handles) note("grandchild-handle", describe(handle));
  if (!arguments[3].empty()) {
    note("grandchild-hold", openForItself(arguments[3]) != nullptr ? "yes" : "no");
  }
  note("grandchild-running", std::to_string(GetCurrentProcessId()));
  Sleep(static_cast<DWORD>(std::stoul(arguments[1])));
  note("grandchild-ended", std::to_string(GetCurrentProcessId()));
  return 0;
}

void* openForItself(const std::wstring& path) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  // cppcheck-suppress resourceLeak  // held to the end of the process, that is the point
  return file == INVALID_HANDLE_VALUE ? nullptr : file;
}

}  // namespace sample_runtime
