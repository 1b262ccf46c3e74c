#include "os/durable_file.h"

#include <windows.h>

#include "os/clock.h"
#include "os/handle.h"
#include "os/random.h"
#include "os/text.h"

namespace launcher_stub::os {
namespace {

// A sibling of the target, so that the rename never crosses volumes. The random part keeps it apart from what a
// crashed process with the same id may have left behind.
std::wstring temporaryPath(const std::wstring& target) {
  const std::string digits = randomHexDigits();
  return target + L".tmp-" + toWideDigits(GetCurrentProcessId()) + L"-" + std::wstring(digits.begin(), digits.end());
}

bool writeAll(HANDLE file, std::string_view contents) {
  while (!contents.empty()) {
    DWORD written = 0;
    if (!WriteFile(file, contents.data(), static_cast<DWORD>(contents.size()), &written, nullptr)) return false;
    if (written == 0) return false;
    contents.remove_prefix(written);
  }
  return true;
}

// Writes, flushes and closes a file that was just created. The bytes are on the disk when this returns true.
bool fillAndClose(OwnedHandle file, std::string_view contents) {
  if (!writeAll(file.get(), contents)) return false;
  if (!FlushFileBuffers(file.get())) return false;
  return CloseHandle(file.release()) != FALSE;
}

// Whoever holds the target open for a moment shows up as one of these two.
bool mayPass(DWORD code) { return code == ERROR_SHARING_VIOLATION || code == ERROR_ACCESS_DENIED; }

bool renameOver(const std::wstring& source, const std::wstring& target) {
  const std::uint64_t deadline = monotonicMilliseconds() + replaceWaitLimitMs;
  while (!MoveFileExW(source.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    const DWORD code = GetLastError();
    if (!mayPass(code) || monotonicMilliseconds() >= deadline) return false;
    sleepMilliseconds(retryPauseMs);
  }
  return true;
}

}  // namespace

bool replaceFileDurably(const std::wstring& target, std::string_view contents) {
  if (contents.size() > largestDurableFile) return false;
  const std::wstring temporary = temporaryPath(target);
  OwnedHandle file = adoptHandle(
      CreateFileW(temporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (file == nullptr) return false;
  // Complete on the disk first, and only then under the name that readers open.
  if (fillAndClose(std::move(file), contents) && renameOver(temporary, target)) return true;
  (void)DeleteFileW(temporary.c_str());  // a leftover is harmless: nothing reads it and its name is never used again
  return false;
}

bool removeFile(const std::wstring& path) {
  if (DeleteFileW(path.c_str())) return true;
  const DWORD code = GetLastError();
  return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
}

}  // namespace launcher_stub::os
