// Stopping a process at a call of a system function, as a debugger does.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/end_to_end/process.h"

namespace end_to_end {

// The creation flag for a process that runToCalls will get. The thread that starts it must make that call too.
extern const std::uint32_t startForBreakpoints;

// Lets the process run until it has called each of these kernel32 functions once, in this order (calls out of order go
// unnoticed), and leaves it stopped at the entry of the last one. False: it ended before, or it took too long.
bool runToCalls(const Process& process, const std::vector<std::string>& functions);

}  // namespace end_to_end
