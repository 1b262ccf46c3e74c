#include "os/running_programs.h"

#include <windows.h>

#include <tlhelp32.h>

#include "os/handle.h"
#include "os/path.h"

namespace launcher_stub::os {
namespace {

constexpr DWORD longestPath = 32768;  // code units, the system's limit

// The result of a call that fills a buffer with a path; empty when it fails.
template <typename Call>
std::wstring pathFrom(Call call) {
  std::wstring path(longestPath, L'\0');
  const DWORD length = call(path.data());
  path.resize(length < longestPath ? length : 0);
  return path;
}

// Absolute, and with long names, as the system itself tells paths of programs; without a separator at the end.
std::wstring spelledOut(const std::wstring& directory) {
  std::wstring full =
      pathFrom([&](wchar_t* buffer) { return GetFullPathNameW(directory.c_str(), longestPath, buffer, nullptr); });
  const std::wstring longNames =
      pathFrom([&](wchar_t* buffer) { return GetLongPathNameW(full.c_str(), buffer, longestPath); });
  if (!longNames.empty()) full = longNames;
  return parentPath(joinPath(full, L"x"));
}

std::wstring executableOf(DWORD processId) {
  const OwnedHandle process = adoptHandle(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
  if (process == nullptr) return {};
  return pathFrom([&](wchar_t* buffer) {
    DWORD length = longestPath;
    return QueryFullProcessImageNameW(process.get(), 0, buffer, &length) ? length : 0;
  });
}

bool samePath(const std::wstring& a, const std::wstring& b) {
  return CompareStringOrdinal(a.c_str(), static_cast<int>(a.size()), b.c_str(), static_cast<int>(b.size()), TRUE) ==
         CSTR_EQUAL;
}

}  // namespace

std::optional<std::vector<RunningProgram>> programsRunningFrom(const std::wstring& directory) {
  const OwnedHandle snapshot = adoptHandle(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (snapshot == nullptr) return std::nullopt;
  const std::wstring wanted = spelledOut(directory);
  std::vector<RunningProgram> programs;
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = Process32FirstW(snapshot.get(), &entry); more; more = Process32NextW(snapshot.get(), &entry)) {
    if (entry.th32ProcessID == GetCurrentProcessId()) continue;
    std::wstring path = executableOf(entry.th32ProcessID);
    if (!path.empty() && samePath(parentPath(path), wanted)) programs.push_back({entry.th32ProcessID, std::move(path)});
  }
  return programs;
}

}  // namespace launcher_stub::os
