// Windows paths as the simulated file system compares them.
#pragma once

#include <string>
#include <string_view>

namespace launcher_stub::sim {

// One spelling for all paths that mean the same: "/" becomes "\", runs of separators one, a separator at the end goes,
// ASCII letters become lower case. (The rules for "." and "..", for shares and for other letters are left out.)
std::wstring pathKey(std::wstring_view path);

// The part above and the last element of a path or key: "c:\a\b" is "c:\a" and "b"; both are empty for no path.
std::wstring parentOf(std::wstring_view path);
std::wstring lastElementOf(std::wstring_view path);

// True when `pattern` matches the whole path or its last elements. "*" stands for any run of characters within one
// element; case and the kind of separator do not matter. An empty pattern matches everything.
bool pathMatches(std::wstring_view path, std::wstring_view pattern);

// ASCII text as it is, anything else as "\u{hex}": for failure messages and records, never for decisions.
std::string printable(std::wstring_view text);

// ASCII only; names of slots, files and the like.
std::wstring widen(std::string_view ascii);

}  // namespace launcher_stub::sim
