// The rules of Windows paths that the launcher needs, as plain text operations. Nothing here asks the system.
#pragma once

#include <string>
#include <string_view>

namespace launcher_stub::os {

// `left` with `right` appended. An absolute `right` replaces `left`; otherwise one "\" is put between them, unless
// `left` is empty, already ends in "\" or "/", or is a bare drive ("X:").
std::wstring joinPath(std::wstring_view left, std::wstring_view right);

// True for a drive with a separator ("D:\x", "D:/x") and for a path that begins with another root name: a share
// ("\\server\share") or a device prefix ("\\?\", "\\.\"). "\x" and "D:x" depend on a current directory: false.
bool isAbsolutePath(std::wstring_view path);

// The path up to its last separator, without the run of separators before the last element. A root keeps its own
// separator, so the parent of "C:\x" is "C:\". Empty when there is nothing above: for a root or a single element.
std::wstring parentPath(std::wstring_view path);

}  // namespace launcher_stub::os
