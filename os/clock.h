// The only source of time.
#pragma once

#include <cstdint>

namespace launcher_stub::os {

// Milliseconds of the high-resolution performance counter. Never runs backwards; only differences mean anything.
std::uint64_t monotonicMilliseconds();

// Blocks the calling thread for `duration` milliseconds.
void sleepMilliseconds(std::uint32_t duration);

}  // namespace launcher_stub::os
