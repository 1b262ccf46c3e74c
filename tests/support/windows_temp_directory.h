// Files and directories for tests that run as Windows programs. Win32 calls only, and none of the code under test.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace launcher_stub::tests {

// Spaces, Cyrillic, an emoji (two code units) and an apostrophe: what a user's folder may be called.
constexpr std::wstring_view oddName = L"odd \u0416\u0443\u043a \U0001F680 it's";

// A fresh directory below the user's temporary folder, removed with all its contents at the end.
class TempDirectory {
 public:
  explicit TempDirectory(std::wstring_view namePart = oddName);
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;
  ~TempDirectory();

  const std::wstring& path() const { return path_; }
  std::wstring operator/(std::wstring_view name) const { return path_ + L"\\" + std::wstring(name); }

 private:
  std::wstring path_;
};

// These throw std::runtime_error where the system refuses.
void makeDirectory(const std::wstring& path);
void writeFile(const std::wstring& path, std::string_view contents);
// A link at `link` that leads to the directory `target`. Under Wine a link of the host's file system stands in.
void makeDirectoryLink(const std::wstring& link, const std::wstring& target);
void setAttributes(const std::wstring& path, unsigned long attributes);
void setLastWriteTime(const std::wstring& path, unsigned long long hundredNanoseconds);

// None where there is no such file or it cannot be read.
std::optional<std::string> readFile(const std::wstring& path);
bool exists(const std::wstring& path);
// The path of what lies beside the running test program.
std::wstring besideThisProgram(std::wstring_view name);
// Sorted, without "." and "..".
std::vector<std::wstring> namesIn(const std::wstring& directory);
// Removes a directory and what is in it, as far as the system lets us. Links are removed, not followed.
void removeTree(const std::wstring& path);

bool runsUnderWine();
// Runs a program of Wine's host system ("/bin/ln") to its end; arguments as that program understands them, without
// double quotes. False: this is not Wine, the program could not be started, or it reported a failure.
bool runHostProgram(const std::wstring& program, const std::vector<std::wstring>& arguments);
// The path by which Wine's host knows a file; empty where this is not Wine.
std::wstring hostPath(const std::wstring& path);

}  // namespace launcher_stub::tests
