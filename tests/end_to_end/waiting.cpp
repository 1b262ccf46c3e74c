#include "tests/end_to_end/waiting.h"

#include <windows.h>

namespace end_to_end {

bool waitUntil(const std::function<bool()>& happened, std::uint32_t limit) {
  const std::uint64_t start = milliseconds();
  while (!happened()) {
    if (milliseconds() - start >= limit) return false;
    Sleep(20);
  }
  return true;
}

std::uint64_t milliseconds() {
  LARGE_INTEGER frequency;
  LARGE_INTEGER now;
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&now);
  const auto perSecond = static_cast<std::uint64_t>(frequency.QuadPart);
  const auto ticks = static_cast<std::uint64_t>(now.QuadPart);
  return ticks / perSecond * 1000 + ticks % perSecond * 1000 / perSecond;
}

}  // namespace end_to_end
