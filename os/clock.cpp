#include "os/clock.h"

#include <windows.h>

namespace launcher_stub::os {

std::uint64_t monotonicMilliseconds() {
  // Both calls succeed on every supported system.
  LARGE_INTEGER counter{};
  LARGE_INTEGER frequency{};
  QueryPerformanceCounter(&counter);
  QueryPerformanceFrequency(&frequency);

  // Whole seconds apart from the rest: the product counter * 1000 would overflow on a machine that has been up long.
  const auto ticks = static_cast<std::uint64_t>(counter.QuadPart);
  const auto ticksPerSecond = static_cast<std::uint64_t>(frequency.QuadPart);
  return ticks / ticksPerSecond * 1000 + ticks % ticksPerSecond * 1000 / ticksPerSecond;
}

void sleepMilliseconds(std::uint32_t duration) { Sleep(duration); }

}  // namespace launcher_stub::os
