// Files and directories as tests need them. What cannot be prepared throws std::runtime_error, which fails the test.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace end_to_end {

struct CloseHandleOnDelete {
  void operator()(void* handle) const noexcept;
};
using Handle = std::unique_ptr<void, CloseHandleOnDelete>;

// Throws with the action and the system's last error.
[[noreturn]] void fail(const std::string& action);

std::wstring toWide(std::string_view utf8);
std::string toUtf8(std::wstring_view wide);

bool isPresent(const std::wstring& path);

// The whole content; empty for a file that is missing or cannot be opened. Locks nobody out.
std::string readFile(const std::wstring& path);

void writeFile(const std::wstring& path, std::string_view content);
void copyFile(const std::wstring& from, const std::wstring& to);

// With all missing directories above.
void createDirectories(const std::wstring& path);

// Names of the entries of a directory, sorted; empty for a missing one.
std::vector<std::wstring> listDirectory(const std::wstring& path);

// With all contents, never through a link. Keeps trying for a few seconds: what was just killed may still hold files.
void removeTree(const std::wstring& path);

// Opens a file so that nobody else can open it, creating it where it is missing. Null: it is in use by another.
Handle openExclusively(const std::wstring& path);

// A file, existing or new, open for this process alone; let go when this goes out of scope.
class HeldFile {
 public:
  explicit HeldFile(const std::wstring& path);
  void letGo() { handle_.reset(); }

 private:
  Handle handle_;
};

std::vector<std::string> splitLines(std::string_view text);

}  // namespace end_to_end
