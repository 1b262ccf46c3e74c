#include "os/path.h"

namespace launcher_stub::os {
namespace {

bool isSeparator(wchar_t character) { return character == L'\\' || character == L'/'; }

bool separatorAt(std::wstring_view path, std::size_t index) { return index < path.size() && isSeparator(path[index]); }

bool startsWithDrive(std::wstring_view path) {
  if (path.size() < 2 || path[1] != L':') return false;
  return (path[0] >= L'a' && path[0] <= L'z') || (path[0] >= L'A' && path[0] <= L'Z');
}

// Two separators and a name: "\\server", "\\?", "\\.".
bool startsWithNetworkName(std::wstring_view path) {
  return separatorAt(path, 0) && separatorAt(path, 1) && path.size() > 2 && !isSeparator(path[2]);
}

// The index behind the element that begins at `start`.
std::size_t elementEnd(std::wstring_view path, std::size_t start) {
  while (start < path.size() && !isSeparator(path[start])) ++start;
  return start;
}

// Server and share from `start` on, as one root: neither can be created or removed as a directory.
std::size_t shareEnd(std::wstring_view path, std::size_t start) {
  const std::size_t server = elementEnd(path, start);
  return server < path.size() ? elementEnd(path, server + 1) : server;
}

std::size_t rootNameLength(std::wstring_view path) {
  if (startsWithDrive(path)) return 2;
  if (!startsWithNetworkName(path)) return 0;
  const bool isDevice = (path[2] == L'?' || path[2] == L'.') && separatorAt(path, 3);
  if (!isDevice) return shareEnd(path, 2);
  const std::size_t deviceEnd = elementEnd(path, 4);
  if (path.substr(4, deviceEnd - 4) != L"UNC") return deviceEnd;
  return separatorAt(path, deviceEnd) ? shareEnd(path, deviceEnd + 1) : deviceEnd;
}

// The root with its own separator, where it has one.
std::size_t rootLength(std::wstring_view path) {
  const std::size_t name = rootNameLength(path);
  return separatorAt(path, name) ? name + 1 : name;
}

}  // namespace

std::wstring joinPath(std::wstring_view left, std::wstring_view right) {
  if (isAbsolutePath(right)) return std::wstring(right);
  std::wstring joined(left);
  const bool isBareDrive = left.size() == 2 && startsWithDrive(left);
  if (!left.empty() && !isSeparator(left.back()) && !isBareDrive) joined += L'\\';
  joined += right;
  return joined;
}

bool isAbsolutePath(std::wstring_view path) {
  return startsWithDrive(path) ? separatorAt(path, 2) : startsWithNetworkName(path);
}

std::wstring parentPath(std::wstring_view path) {
  const std::size_t root = rootLength(path);
  if (path.size() <= root) return {};
  std::size_t end = path.size();
  while (end > root && !isSeparator(path[end - 1])) --end;  // the last element
  while (end > root && isSeparator(path[end - 1])) --end;   // the separators before it
  return std::wstring(path.substr(0, end));
}

}  // namespace launcher_stub::os
