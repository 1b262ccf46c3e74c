#include "os/log.h"

#include <windows.h>

namespace launcher_stub::os {

void logLine(std::string_view message) {
  std::string line(message);
  line += '\n';

  // Bytes straight to the handle: the run-time library's stream would turn the line feed into two bytes. A process
  // without a standard error stream has no handle or a dead one; then the first write fails and the line is lost.
  HANDLE stream = GetStdHandle(STD_ERROR_HANDLE);
  std::size_t written = 0;
  while (written < line.size()) {
    DWORD count = 0;
    const auto rest = static_cast<DWORD>(line.size() - written);
    if (!WriteFile(stream, line.data() + written, rest, &count, nullptr) || count == 0) return;
    written += count;
  }
}

}  // namespace launcher_stub::os
