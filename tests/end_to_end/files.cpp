#include "tests/end_to_end/files.h"

#include <windows.h>

#include <algorithm>
#include <stdexcept>

#include "tests/end_to_end/waiting.h"

namespace end_to_end {
namespace {

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

Handle adopt(HANDLE handle) { return Handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle); }

bool tryRemoveTree(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return true;
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    return DeleteFileW(path.c_str()) != 0;
  }
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
    for (const std::wstring& name : listDirectory(path)) (void)tryRemoveTree(path + L"\\" + name);  // shows below
  }
  return RemoveDirectoryW(path.c_str()) != 0;
}

}  // namespace

void CloseHandleOnDelete::operator()(void* handle) const noexcept { CloseHandle(handle); }

void fail(const std::string& action) {
  const DWORD code = GetLastError();
  throw std::runtime_error(action + ": Win32 error " + std::to_string(code));
}

std::wstring toWide(std::string_view utf8) {
  if (utf8.empty()) return {};
  const int length = static_cast<int>(utf8.size());
  const int size = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), length, nullptr, 0);
  if (size == 0) fail("not UTF-8: " + std::string(utf8));
  std::wstring wide(static_cast<std::size_t>(size), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, wide.data(), size);
  return wide;
}

std::string toUtf8(std::wstring_view wide) {
  if (wide.empty()) return {};
  const int length = static_cast<int>(wide.size());
  const int size = WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, utf8.data(), size, nullptr, nullptr);
  return utf8;
}

bool isPresent(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

std::string readFile(const std::wstring& path) {
  const Handle file = adopt(CreateFileW(path.c_str(), GENERIC_READ, shareAll, nullptr, OPEN_EXISTING, 0, nullptr));
  std::string content;
  char buffer[65536];
  DWORD count = 0;
  while (file != nullptr && ReadFile(file.get(), buffer, sizeof buffer, &count, nullptr) && count > 0) {
    content.append(buffer, count);
  }
  return content;
}

void writeFile(const std::wstring& path, std::string_view content) {
  const Handle file = adopt(CreateFileW(path.c_str(), GENERIC_WRITE, shareAll, nullptr, CREATE_ALWAYS, 0, nullptr));
  DWORD written = 0;
  if (file == nullptr ||
      !WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr) ||
      written != content.size()) {
    fail("cannot write " + toUtf8(path));
  }
}

void copyFile(const std::wstring& from, const std::wstring& to) {
  if (!CopyFileW(from.c_str(), to.c_str(), FALSE)) fail("cannot copy " + toUtf8(from) + " to " + toUtf8(to));
}

void createDirectories(const std::wstring& path) {
  if (isPresent(path)) return;
  createDirectories(path.substr(0, path.find_last_of(L"\\/")));
  if (!CreateDirectoryW(path.c_str(), nullptr)) fail("cannot create " + toUtf8(path));
}

std::vector<std::wstring> listDirectory(const std::wstring& path) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW entry;
  HANDLE search = FindFirstFileW((path + L"\\*").c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return names;
  do {
    const std::wstring name = entry.cFileName;
    if (name != L"." && name != L"..") names.push_back(name);
  } while (FindNextFileW(search, &entry));
  FindClose(search);
  std::sort(names.begin(), names.end());
  return names;
}

void removeTree(const std::wstring& path) {
  constexpr std::uint32_t limitMs = 5'000;
  (void)waitUntil([&] { return tryRemoveTree(path); }, limitMs);  // what stays behind lies in a temporary directory
}

Handle openExclusively(const std::wstring& path) {
  return adopt(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

HeldFile::HeldFile(const std::wstring& path) : handle_(openExclusively(path)) {
  if (handle_ == nullptr) fail("cannot hold " + toUtf8(path));
}

std::vector<std::string> splitLines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return lines;
}

}  // namespace end_to_end
