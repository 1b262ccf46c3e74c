#include "os/directory.h"

#include <windows.h>

#include <memory>

#include "os/listed_entries.h"
#include "os/messages.h"
#include "os/path.h"
#include "os/text.h"

namespace launcher_stub::os {
namespace {

DWORD removeEntry(const std::wstring& path, const ListedEntry& entry) {
  // The system refuses to delete what is read-only. On a link this changes the link itself. Should it fail, the
  // deletion fails too and gives the code.
  if (has(entry, FILE_ATTRIBUTE_READONLY)) {
    (void)SetFileAttributesW(path.c_str(), entry.attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
  }
  if (has(entry, FILE_ATTRIBUTE_DIRECTORY)) return removeDirectoryTree(path);
  return DeleteFileW(path.c_str()) ? ERROR_SUCCESS : GetLastError();
}

bool isBlank(wchar_t character) { return character == L'\r' || character == L'\n' || character == L' '; }

}  // namespace

std::uint32_t removeEmptyDirectory(const std::wstring& path) {
  return RemoveDirectoryW(path.c_str()) ? ERROR_SUCCESS : GetLastError();
}

std::uint32_t removeDirectoryTree(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return GetLastError();
  // A link goes by itself: what it leads to belongs to somebody else.
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) return removeEmptyDirectory(path);

  // The list is taken whole before anything goes: removing while listing may skip entries.
  std::vector<ListedEntry> entries;
  std::uint32_t firstFailure = readEntries(path, entries);
  for (const ListedEntry& entry : entries) {
    const DWORD code = removeEntry(joinPath(path, entry.name), entry);
    if (firstFailure == ERROR_SUCCESS) firstFailure = code;
  }
  const std::uint32_t code = removeEmptyDirectory(path);
  return firstFailure == ERROR_SUCCESS ? code : firstFailure;
}

std::string systemMessage(std::uint32_t code) {
  struct Freed {
    void operator()(wchar_t* text) const noexcept { LocalFree(text); }
  };
  // The system allocates the text: no buffer of ours could cut it. Its line breaks become spaces, for a line is one.
  constexpr DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS |
                          FORMAT_MESSAGE_MAX_WIDTH_MASK;
  wchar_t* raw = nullptr;
  std::size_t length = FormatMessageW(flags, nullptr, code, 0, reinterpret_cast<wchar_t*>(&raw), 0, nullptr);
  const std::unique_ptr<wchar_t, Freed> text(raw);
  while (length > 0 && isBlank(text.get()[length - 1])) --length;
  if (length == 0) return std::string(messages::codeWithoutText) + std::to_string(code);
  return toUtf8({text.get(), length});
}

}  // namespace launcher_stub::os
