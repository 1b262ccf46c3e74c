// The diagnostic line: the launcher's one output for those who redirect it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace launcher_stub::os {

// Writes `message` (UTF-8, or text of the system code page where a caller says so) and one byte 10 to the standard
// error stream, unbuffered: no time stamp, no prefix, no carriage return. A process without that stream, or a write
// that fails, loses the line and nothing else.
void logLine(std::string_view message);

// The text of a failed Windows call: "<action>: Win32 error <code>".
std::string failedAction(std::string_view action, std::uint32_t code);

}  // namespace launcher_stub::os
