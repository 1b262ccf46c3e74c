#include "os/file_status.h"

#include <windows.h>

#include "os/link_target.h"

namespace launcher_stub::os {
namespace {

PathStatus statusOfFailure(DWORD code) {
  return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND ? PathStatus::missing : PathStatus::unknown;
}

PathStatus statusBehindLink(const std::wstring& path) {
  LinkTarget target;
  const DWORD code = followLink(path, target);
  if (code != ERROR_SUCCESS) return statusOfFailure(code);
  return target.isDirectory ? PathStatus::directory : PathStatus::other;
}

}  // namespace

PathStatus pathStatus(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return statusOfFailure(GetLastError());
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) return statusBehindLink(path);
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? PathStatus::directory : PathStatus::other;
}

bool pathIsPresent(const std::wstring& path) {
  const PathStatus status = pathStatus(path);
  return status == PathStatus::directory || status == PathStatus::other;
}

bool pathIsMissing(const std::wstring& path) { return pathStatus(path) == PathStatus::missing; }

}  // namespace launcher_stub::os
