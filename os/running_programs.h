// Which programs run now. Only asks the system for its list: opens no file, and disturbs no process.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace launcher_stub::os {

struct RunningProgram {
  std::uint32_t processId = 0;
  std::wstring path;  // of its executable
};

// The programs whose executables lie directly in `directory`, without this process itself. Programs that this user may
// not ask for their path are left out, and so are those whose path goes by another drive or link. None: the system
// gives no list.
std::optional<std::vector<RunningProgram>> programsRunningFrom(const std::wstring& directory);

}  // namespace launcher_stub::os
