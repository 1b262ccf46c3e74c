// Paths as they are shown.
#pragma once

#include <string>
#include <string_view>

#include "os/text.h"

namespace launcher_stub::explain {

// UTF-8. A path that is no valid text says so instead of vanishing.
inline std::string pathText(std::wstring_view path) {
  std::string text = os::toUtf8(path);
  return text.empty() && !path.empty() ? "(not valid text)" : text;
}

}  // namespace launcher_stub::explain
