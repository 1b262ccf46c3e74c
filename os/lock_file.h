// Lock files: exclusion between processes by an open handle that shares nothing.
#pragma once

#include <cstdint>
#include <string>

#include "os/handle.h"

namespace launcher_stub::os {

constexpr std::uint64_t lockWaitLimitMs = 5'000;  // how long a waiting open keeps retrying, every 50 ms

// A lock is held exactly as long as `handle` is open; the end of the process releases it as well.
struct LockFile {
  OwnedHandle handle;
  bool busy = false;  // the last failure was a sharing violation: another process holds the lock
};

enum class LockWait { none, fiveSeconds };

// Opens `path` for this process alone, creating it empty where it is missing; its content is never touched.
// True: `lock.handle` holds the lock. False: `lock.busy` says whether another process holds it. Only that is waited
// for; any other failure returns at once.
bool openLockFile(LockFile& lock, const std::wstring& path, LockWait wait);

// Releases the lock. The file stays. Closing twice is harmless.
void closeLockFile(LockFile& lock);

}  // namespace launcher_stub::os
