#include "os/this_process.h"

#include <windows.h>

#include "os/job.h"

namespace launcher_stub::os {

void loadLibrariesFromSystemOnly() noexcept { (void)SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32); }

void containThisProcess() {
  OwnedHandle job = createKillOnCloseJob();
  if (job == nullptr || !AssignProcessToJobObject(job.get(), GetCurrentProcess())) return;
  // Left open for the life of the process: closing it would end this very process.
  (void)job.release();
}

std::wstring launcherExecutablePath() {
  constexpr DWORD longestPath = 32768;  // code units, the system's limit
  std::wstring path(longestPath, L'\0');
  const DWORD length = GetModuleFileNameW(nullptr, path.data(), longestPath);
  if (length == 0 || length >= longestPath) return {};
  path.resize(length);
  return path;
}

void endThisProcessQuietly() noexcept {
  TerminateProcess(GetCurrentProcess(), 3);
  for (;;) Sleep(INFINITE);  // not reached: a process that terminates itself does not return
}

}  // namespace launcher_stub::os
