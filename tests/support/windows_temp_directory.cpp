#include "tests/support/windows_temp_directory.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace launcher_stub::tests {
namespace {

[[noreturn]] void fail(const char* action) {
  const DWORD code = GetLastError();
  throw std::runtime_error(std::string(action) + " failed with " + std::to_string(code));
}

void require(bool succeeded, const char* action) {
  if (!succeeded) fail(action);
}

HANDLE openFile(const std::wstring& path, DWORD access, DWORD disposition) {
  return CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, disposition,
                     FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

template <typename Function>
Function kernelFunction(const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), name)));
}

using ToHostName = char*(CDECL*)(const wchar_t*);
ToHostName toHostName() { return kernelFunction<ToHostName>("wine_get_unix_file_name"); }

std::wstring freshName(std::wstring_view namePart) {
  static unsigned counter = 0;
  return std::wstring(namePart) + L" " + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++counter) +
         L"-" + std::to_wstring(GetTickCount64());
}

bool hasAttribute(const std::wstring& path, DWORD attribute) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & attribute) != 0;
}

// Wine cannot remove a link, and does not see it any more once what it leads to is gone: so they go first.
void removeHostLinks(const std::wstring& path) {
  if (hasAttribute(path, FILE_ATTRIBUTE_REPARSE_POINT)) {
    runHostProgram(L"/bin/rm", {hostPath(path)});
  } else if (hasAttribute(path, FILE_ATTRIBUTE_DIRECTORY)) {
    for (const std::wstring& name : namesIn(path)) removeHostLinks(path + L"\\" + name);
  }
}

void removeContents(const std::wstring& path) {
  const bool isDirectory = hasAttribute(path, FILE_ATTRIBUTE_DIRECTORY);
  if (!hasAttribute(path, FILE_ATTRIBUTE_REPARSE_POINT)) {
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    if (isDirectory) {
      for (const std::wstring& name : namesIn(path)) removeContents(path + L"\\" + name);
    }
  }
  if (!isDirectory || !RemoveDirectoryW(path.c_str())) DeleteFileW(path.c_str());
}

}  // namespace

TempDirectory::TempDirectory(std::wstring_view namePart) {
  std::array<wchar_t, MAX_PATH + 1> folder{};
  require(GetTempPathW(static_cast<DWORD>(folder.size()), folder.data()) != 0, "GetTempPathW");
  path_ = folder.data() + freshName(namePart);
  makeDirectory(path_);
}

TempDirectory::~TempDirectory() { removeTree(path_); }

void makeDirectory(const std::wstring& path) { require(CreateDirectoryW(path.c_str(), nullptr), "CreateDirectoryW"); }

void writeFile(const std::wstring& path, std::string_view contents) {
  HANDLE file = openFile(path, GENERIC_WRITE, CREATE_ALWAYS);
  require(file != INVALID_HANDLE_VALUE, "CreateFileW");
  DWORD written = 0;
  const BOOL succeeded = WriteFile(file, contents.data(), static_cast<DWORD>(contents.size()), &written, nullptr);
  CloseHandle(file);
  require(succeeded && written == contents.size(), "WriteFile");
}

void makeDirectoryLink(const std::wstring& link, const std::wstring& target) {
  if (CreateSymbolicLinkW(link.c_str(), target.c_str(), SYMBOLIC_LINK_FLAG_DIRECTORY | 2 /* without privilege */)) {
    if (exists(link)) return;
  }
  require(runHostProgram(L"/bin/ln", {L"-s", hostPath(target), hostPath(link)}), "making a link");
}

void setAttributes(const std::wstring& path, unsigned long attributes) {
  require(SetFileAttributesW(path.c_str(), attributes), "SetFileAttributesW");
}

void setLastWriteTime(const std::wstring& path, unsigned long long hundredNanoseconds) {
  HANDLE file = openFile(path, FILE_WRITE_ATTRIBUTES, OPEN_EXISTING);
  require(file != INVALID_HANDLE_VALUE, "CreateFileW");
  const FILETIME time{static_cast<DWORD>(hundredNanoseconds), static_cast<DWORD>(hundredNanoseconds >> 32)};
  const BOOL succeeded = SetFileTime(file, nullptr, nullptr, &time);
  CloseHandle(file);
  require(succeeded, "SetFileTime");
}

std::optional<std::string> readFile(const std::wstring& path) {
  HANDLE file = openFile(path, GENERIC_READ, OPEN_EXISTING);
  if (file == INVALID_HANDLE_VALUE) return std::nullopt;
  std::string contents;
  std::array<char, 4096> buffer{};
  DWORD count = 0;
  BOOL succeeded = FALSE;
  while ((succeeded = ReadFile(file, buffer.data(), static_cast<DWORD>(buffer.size()), &count, nullptr)) && count > 0) {
    contents.append(buffer.data(), count);
  }
  CloseHandle(file);
  if (!succeeded) return std::nullopt;
  return contents;
}

bool exists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

std::wstring besideThisProgram(std::wstring_view name) {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return path.substr(0, path.find_last_of(L'\\') + 1).append(name);
}

std::vector<std::wstring> namesIn(const std::wstring& directory) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW found{};
  HANDLE search = FindFirstFileW((directory + L"\\*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return names;
  do {
    const std::wstring name = found.cFileName;
    if (name != L"." && name != L"..") names.push_back(name);
  } while (FindNextFileW(search, &found));
  FindClose(search);
  std::sort(names.begin(), names.end());
  return names;
}

void removeTree(const std::wstring& path) {
  if (runsUnderWine()) removeHostLinks(path);
  removeContents(path);
}

bool runsUnderWine() { return toHostName() != nullptr; }

std::wstring hostPath(const std::wstring& path) {
  if (!runsUnderWine()) return {};
  char* host = toHostName()(path.c_str());
  if (host == nullptr) return {};
  std::wstring wide(32768, L'\0');
  const int length = MultiByteToWideChar(CP_UTF8, 0, host, -1, wide.data(), static_cast<int>(wide.size()));
  HeapFree(GetProcessHeap(), 0, host);
  wide.resize(length > 0 ? static_cast<std::size_t>(length - 1) : 0);
  return wide;
}

bool runHostProgram(const std::wstring& program, const std::vector<std::wstring>& arguments) {
  if (!runsUnderWine()) return false;
  // Wine starts a host program like one of its own, but cannot wait for it nor tell its exit code. The shell leaves a
  // file behind when it is done, and only after success.
  const TempDirectory scratch(L"host program");
  const std::wstring done = scratch / L"done";
  std::wstring script = program;
  std::wstring operands = L" \"" + hostPath(scratch.path()) + L"/done\"";
  for (std::size_t index = 0; index < arguments.size(); ++index) {
    script += L" \\\"$" + std::to_wstring(index + 1) + L"\\\"";
    operands += L" \"" + arguments[index] + L"\"";
  }
  std::wstring line = L"sh -c \"" + script + L" && : >\\\"$0\\\"\"" + operands;

  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (!CreateProcessW(L"Z:\\bin\\sh", line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process)) {
    return false;
  }
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  for (int tries = 0; tries < 100 && !exists(done); ++tries) Sleep(50);
  return exists(done);
}

}  // namespace launcher_stub::tests
