// Apart from the removing, so that a program which only reads has none of that in it.
#include <windows.h>

#include <memory>

#include "os/directory.h"
#include "os/link_target.h"
#include "os/listed_entries.h"
#include "os/path.h"

namespace launcher_stub::os {
namespace {

std::uint64_t toHundredNanoseconds(const FILETIME& time) {
  return (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

struct SearchClosed {
  void operator()(void* search) const noexcept { FindClose(search); }
};

}  // namespace

std::uint32_t readEntries(const std::wstring& path, std::vector<ListedEntry>& entries) {
  WIN32_FIND_DATAW found{};
  HANDLE raw =
      FindFirstFileExW(joinPath(path, L"*").c_str(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0);
  if (raw == INVALID_HANDLE_VALUE) return GetLastError();
  const std::unique_ptr<void, SearchClosed> search(raw);
  do {
    const std::wstring name = found.cFileName;
    if (name == L"." || name == L"..") continue;
    entries.push_back({name, found.dwFileAttributes, toHundredNanoseconds(found.ftLastWriteTime)});
  } while (FindNextFileW(search.get(), &found));
  const DWORD code = GetLastError();
  return code == ERROR_NO_MORE_FILES ? ERROR_SUCCESS : code;
}

std::vector<DirectoryEntry> listDirectory(const std::wstring& path) {
  std::vector<ListedEntry> listed;
  (void)readEntries(path, listed);  // as far as it goes
  std::vector<DirectoryEntry> entries;
  for (const ListedEntry& found : listed) {
    DirectoryEntry entry{found.name, false, false, 0};
    if (has(found, FILE_ATTRIBUTE_REPARSE_POINT)) {
      LinkTarget target;  // stays empty where the link leads nowhere: no directory, no time
      entry.timeKnown = followLink(joinPath(path, found.name), target) == ERROR_SUCCESS;
      entry.isDirectory = target.isDirectory;
      entry.lastWriteTime = target.lastWriteTime;
    } else {
      entry.isDirectory = has(found, FILE_ATTRIBUTE_DIRECTORY);
      entry.timeKnown = true;
      entry.lastWriteTime = found.lastWriteTime;
    }
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace launcher_stub::os
