// What lies at a path.
#pragma once

#include <string>

namespace launcher_stub::os {

enum class PathStatus {
  missing,    // the system says so: error 2 or 3, nothing else
  directory,  // also a link that stands for a directory
  other,      // a file, or anything else that is not a directory
  unknown,    // the status could not be taken: there may well be something
};

PathStatus pathStatus(const std::wstring& path);

// Something is known to be there.
bool pathIsPresent(const std::wstring& path);

// Nothing is there, on the system's own word. A failing query is not such a word.
bool pathIsMissing(const std::wstring& path);

}  // namespace launcher_stub::os
