// The small ones: chance, time, handles, the diagnostic line.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>

#include "os/clock.h"
#include "os/handle.h"
#include "os/log.h"
#include "os/random.h"
#include "tests/os/contract/contract_world.h"

namespace launcher_stub::os {
namespace {

using contract::World;

TEST(randomHexDigits, areThirtyTwoLowerCaseDigitsThatDifferEachTime) {
  World world;
  std::set<std::string> seen;
  std::string all;
  for (int count = 0; count < 200; ++count) {
    const std::string digits = randomHexDigits();
    EXPECT_EQ(digits.size(), 32u);
    EXPECT_EQ(digits.find_first_not_of("0123456789abcdef"), std::string::npos) << digits;
    seen.insert(digits);
    all += digits;
  }

  EXPECT_EQ(seen.size(), 200u);
  // By chance one of the sixteen is missing from 6400 digits: less than once in 10^178 runs.
  EXPECT_EQ(std::set<char>(all.begin(), all.end()).size(), 16u);
}

TEST(monotonicMilliseconds, neverRunsBackwards) {
  World world;
  std::uint64_t last = monotonicMilliseconds();
  for (int count = 0; count < 2'000; ++count) {
    if (count % 100 == 0) sleepMilliseconds(1);
    const std::uint64_t now = monotonicMilliseconds();
    ASSERT_GE(now, last);
    last = now;
  }
}

// By the clock itself, and by another one where there is another. The system's timer may be one of its ticks early.
TEST(sleepMilliseconds, lastsAboutAsLongAsAskedFor) {
  World world;
  for (const std::uint32_t duration : {0u, 50u, 300u}) {
    SCOPED_TRACE(duration);
    const std::uint64_t start = monotonicMilliseconds();
    const std::uint64_t startElsewhere = world.now();
    sleepMilliseconds(duration);
    const std::uint64_t elapsed = monotonicMilliseconds() - start;
    const std::uint64_t elapsedElsewhere = world.now() - startElsewhere;
    EXPECT_GE(elapsed + 16, duration);
    EXPECT_LT(elapsed, duration + 1'000);
    EXPECT_GE(elapsedElsewhere + World::clockStepMs, elapsed) << "milliseconds, and no shorter ones";
    EXPECT_LE(elapsedElsewhere, elapsed + World::clockStepMs) << "and no longer ones";
  }
}

TEST(adoptHandle, knowsBothWaysToSayThatThereIsNone) {
  World world;
  EXPECT_EQ(adoptHandle(nullptr), nullptr);
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the system's own way
  EXPECT_EQ(adoptHandle(reinterpret_cast<void*>(~std::uintptr_t{0})), nullptr);
}

TEST(logLine, isOneLineForEachCall) {
  World world;
  world.recordLines();

  logLine("first");
  logLine("");
  logLine("\xD0\x96 third");

  EXPECT_EQ(world.lines(), (std::vector<std::string>{"first", "", "\xD0\x96 third"}));
}

}  // namespace
}  // namespace launcher_stub::os
