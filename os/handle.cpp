#include "os/handle.h"

#include <windows.h>

namespace launcher_stub::os {

void HandleCloser::operator()(void* handle) const noexcept {
  const DWORD code = GetLastError();
  CloseHandle(handle);
  SetLastError(code);
}

OwnedHandle adoptHandle(void* raw) noexcept { return OwnedHandle(raw == INVALID_HANDLE_VALUE ? nullptr : raw); }

}  // namespace launcher_stub::os
