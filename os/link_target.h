// What a link leads to.
#pragma once

#include <cstdint>
#include <string>

namespace launcher_stub::os {

struct LinkTarget {
  bool isDirectory = false;
  std::uint64_t lastWriteTime = 0;  // in units of 100 ns
};

// Follows the link at `path`, through as many links as there are. Win32 error code, 0 for success.
std::uint32_t followLink(const std::wstring& path, LinkTarget& target);

}  // namespace launcher_stub::os
