#include "os/clock.h"

#include <gtest/gtest.h>

namespace launcher_stub::os {
namespace {

TEST(monotonicMilliseconds, neverRunsBackwards) {
  std::uint64_t last = monotonicMilliseconds();
  for (int count = 0; count < 100'000; ++count) {
    const std::uint64_t now = monotonicMilliseconds();
    ASSERT_GE(now, last);
    last = now;
  }
}

TEST(sleepMilliseconds, lastsAsLongAsTheClockSays) {
  const std::uint64_t start = monotonicMilliseconds();

  sleepMilliseconds(300);

  const std::uint64_t elapsed = monotonicMilliseconds() - start;
  EXPECT_GE(elapsed, 285u);  // the system's timer may be one of its ticks early
  EXPECT_LT(elapsed, 3000u);
}

}  // namespace
}  // namespace launcher_stub::os
