#include "conformance/platform_files.h"

#include <windows.h>

namespace conformance {
namespace {

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool failed(const char* action, const std::wstring& path, std::string& problem) {
  const DWORD code = GetLastError();
  problem = std::string(action) + " " + toUtf8(path) + ": Win32 error " + std::to_string(code);
  return false;
}

DWORD attributesOf(const std::wstring& path) { return GetFileAttributesW(path.c_str()); }

bool hasAttribute(const std::wstring& path, DWORD attribute) {
  const DWORD attributes = attributesOf(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & attribute) != 0;
}

void removeOnce(const std::wstring& path) {
  const DWORD attributes = attributesOf(path);
  if (attributes == INVALID_FILE_ATTRIBUTES) return;
  if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    DeleteFileW(path.c_str());
    return;
  }
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
    for (const std::wstring& name : namesIn(path)) removeOnce(inDirectory(path, name));
  }
  RemoveDirectoryW(path.c_str());
}

void printTo(DWORD stream, std::string_view text) {
  HANDLE handle = GetStdHandle(stream);
  DWORD mode = 0;
  DWORD written = 0;
  if (GetConsoleMode(handle, &mode)) {
    const std::wstring wide = toWide(text);
    WriteConsoleW(handle, wide.data(), static_cast<DWORD>(wide.size()), &written, nullptr);
  } else {
    WriteFile(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  }
}

}  // namespace

void HandleCloser::operator()(void* handle) const noexcept {
  const DWORD error = GetLastError();
  CloseHandle(handle);
  SetLastError(error);
}

Handle adoptHandle(void* raw) { return Handle(raw == INVALID_HANDLE_VALUE ? nullptr : raw); }

std::wstring toWide(std::string_view utf8) {
  if (utf8.empty()) return {};
  const int length = static_cast<int>(utf8.size());
  std::wstring wide(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0)), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, wide.data(), static_cast<int>(wide.size()));
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

std::uint64_t milliseconds() { return GetTickCount64(); }

void pause(std::uint32_t duration) { Sleep(duration); }

bool isPresent(const std::wstring& path) { return attributesOf(path) != INVALID_FILE_ATTRIBUTES; }

bool isDirectory(const std::wstring& path) { return hasAttribute(path, FILE_ATTRIBUTE_DIRECTORY); }

std::wstring inDirectory(const std::wstring& directory, std::wstring_view name) {
  std::wstring path = directory;
  path += L'\\';
  path += name;
  return path;
}

std::wstring fullPath(const std::wstring& path) {
  std::wstring full(32768, L'\0');
  full.resize(GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
  while (full.size() > 3 && full.back() == L'\\') full.pop_back();
  return full;
}

std::wstring temporaryDirectory() {
  std::wstring path(MAX_PATH + 1, L'\0');
  path.resize(GetTempPathW(static_cast<DWORD>(path.size()), path.data()));
  return fullPath(path);
}

std::uint32_t readFile(const std::wstring& path, std::string& content) {
  const Handle file = adoptHandle(
      CreateFileW(path.c_str(), GENERIC_READ, shareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (file == nullptr) return GetLastError();
  std::string read;
  char part[4096];
  for (DWORD count = 0;; read.append(part, count)) {
    if (!ReadFile(file.get(), part, sizeof part, &count, nullptr)) return GetLastError();
    if (count == 0) break;
  }
  content = read;
  return 0;
}

bool writeFile(const std::wstring& path, std::string_view content, std::string& problem) {
  const Handle file =
      adoptHandle(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  if (file == nullptr ||
      !WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr)) {
    return failed("cannot write", path, problem);
  }
  return true;
}

bool createDirectory(const std::wstring& path, std::string& problem) {
  if (isDirectory(path)) return true;
  const std::size_t end = path.find_last_of(L'\\');
  if (end != std::wstring::npos && end > 2 && !createDirectory(path.substr(0, end), problem)) return false;
  return CreateDirectoryW(path.c_str(), nullptr) != 0 || failed("cannot create", path, problem);
}

bool copyFile(const std::wstring& from, const std::wstring& to, std::string& problem) {
  return CopyFileW(from.c_str(), to.c_str(), FALSE) != 0 || failed("cannot copy", from, problem);
}

bool copyTree(const std::wstring& from, const std::wstring& to, std::string& problem) {
  if (!createDirectory(to, problem)) return false;
  for (const std::wstring& name : namesIn(from)) {
    const std::wstring source = inDirectory(from, name);
    const std::wstring target = inDirectory(to, name);
    if (!(isDirectory(source) ? copyTree(source, target, problem) : copyFile(source, target, problem))) return false;
  }
  return true;
}

void removeTree(const std::wstring& path) {
  constexpr int tries = 20;
  for (int count = 0; count < tries && isPresent(path); ++count) {
    if (count > 0) pause(100);
    removeOnce(path);
  }
}

std::vector<std::wstring> namesIn(const std::wstring& directory) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW found = {};
  HANDLE search = FindFirstFileW((directory + L"\\*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return names;
  do {
    const std::wstring_view name = found.cFileName;
    if (name != L"." && name != L"..") names.emplace_back(name);
  } while (FindNextFileW(search, &found));
  FindClose(search);
  return names;
}

Handle openForNobodyElse(const std::wstring& path) {
  return adoptHandle(
      CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

void printOut(std::string_view text) { printTo(STD_OUTPUT_HANDLE, text); }

void printError(std::string_view text) { printTo(STD_ERROR_HANDLE, text); }

}  // namespace conformance
