#include "os/link_target.h"

#include <windows.h>

#include "os/handle.h"

namespace launcher_stub::os {

std::uint32_t followLink(const std::wstring& path, LinkTarget& target) {
  // Opening follows links. Asking for the attributes only is never a sharing violation.
  constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const OwnedHandle handle = adoptHandle(CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, shareAll, nullptr,
                                                     OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  if (handle == nullptr) return GetLastError();
  BY_HANDLE_FILE_INFORMATION information{};
  if (!GetFileInformationByHandle(handle.get(), &information)) return GetLastError();
  target.isDirectory = (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  target.lastWriteTime = (static_cast<std::uint64_t>(information.ftLastWriteTime.dwHighDateTime) << 32) |
                         information.ftLastWriteTime.dwLowDateTime;
  return ERROR_SUCCESS;
}

}  // namespace launcher_stub::os
