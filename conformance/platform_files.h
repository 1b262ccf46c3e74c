// Files, text and time, as the kit needs them. Paths may not exceed what the system takes without a prefix: the
// temporary installation is kept short.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace conformance {

struct HandleCloser {
  void operator()(void* handle) const noexcept;
};
using Handle = std::unique_ptr<void, HandleCloser>;  // "no handle" is null
Handle adoptHandle(void* raw);                       // as the system returned it

std::wstring toWide(std::string_view utf8);
std::string toUtf8(std::wstring_view wide);

// Monotonic.
std::uint64_t milliseconds();
void pause(std::uint32_t duration);

bool isPresent(const std::wstring& path);
bool isDirectory(const std::wstring& path);

// The path of what is called `name` in a directory.
std::wstring inDirectory(const std::wstring& directory, std::wstring_view name);

// The full path of `path`, without a separator at its end.
std::wstring fullPath(const std::wstring& path);

// The user's temporary directory, without a separator at its end.
std::wstring temporaryDirectory();

// A whole file, without keeping anybody else from it. Zero, or the system's error code; `content` is then as it was.
std::uint32_t readFile(const std::wstring& path, std::string& content);

// These return false after a failure and set `problem` to a line about it.
bool writeFile(const std::wstring& path, std::string_view content, std::string& problem);
bool createDirectory(const std::wstring& path, std::string& problem);  // with all missing ones above
bool copyFile(const std::wstring& from, const std::wstring& to, std::string& problem);
// A directory with everything in it. What links lead to is copied like the rest.
bool copyTree(const std::wstring& from, const std::wstring& to, std::string& problem);

// As far as the system lets us; tries for two seconds, since what has just been ended may still hold files. Links are
// removed, not followed.
void removeTree(const std::wstring& path);

// Names of the entries, without "." and ".."; empty for a missing directory.
std::vector<std::wstring> namesIn(const std::wstring& directory);

// Opens an existing file so that nobody else can open it. Null: missing, or open elsewhere.
Handle openForNobodyElse(const std::wstring& path);

// Text for standard output or standard error; on a console in any script, else as UTF-8.
void printOut(std::string_view text);
void printError(std::string_view text);

}  // namespace conformance
