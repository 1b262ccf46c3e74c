#include "os/lock_file.h"

#include <windows.h>

#include "os/clock.h"
#include "os/durable_file.h"

namespace launcher_stub::os {

bool openLockFile(LockFile& lock, const std::wstring& path, LockWait wait) {
  lock.busy = false;
  const std::uint64_t start = monotonicMilliseconds();
  for (;;) {
    OwnedHandle handle = adoptHandle(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                                                 FILE_ATTRIBUTE_NORMAL, nullptr));
    const DWORD code = GetLastError();
    if (handle != nullptr) {
      lock.handle = std::move(handle);
      return true;
    }
    lock.busy = code == ERROR_SHARING_VIOLATION;
    if (!lock.busy || wait == LockWait::none || monotonicMilliseconds() - start >= lockWaitLimitMs) return false;
    sleepMilliseconds(retryPauseMs);
  }
}

void closeLockFile(LockFile& lock) { lock.handle.reset(); }

}  // namespace launcher_stub::os
