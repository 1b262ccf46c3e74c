// Random lives: many installations, each with thousands of launches, with whatever can happen to them drawn from one
// seed. `./dev soak` runs as many as one likes, and replays one.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "tests/sweeps/effort.h"
#include "tests/sweeps/random_life.h"

namespace launcher_stub::sweeps {
namespace {

constexpr std::uint64_t firstSeed = 1;
constexpr std::uint64_t launchesOfEach = thorough ? launchesOfALife : 250;

// LAUNCHER_LIVES_LAUNCHES says how many launches there are to be in all.
std::uint64_t launchesWanted() {
  const char* const wanted = std::getenv("LAUNCHER_LIVES_LAUNCHES");
  return wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : thorough ? 100'000 : 1'500;
}

std::string replayCommand(const LifeReport& life) { return "./dev soak --replay " + std::to_string(life.seed); }

TEST(randomLives, keepEveryPromiseAndComeAcrossEverything) {
  const auto begun = std::chrono::steady_clock::now();
  std::map<std::string, std::uint64_t, std::less<>> reached;
  std::uint64_t launches = 0;
  std::uint64_t machines = 0;
  std::uint64_t lives = 0;
  for (std::uint64_t seed = firstSeed; launches < launchesWanted(); ++seed, ++lives) {
    const LifeReport life = liveRandomly(seed, launchesOfEach);
    EXPECT_EQ(life.findings, "") << "in launch " << life.launches << " of: " << replayCommand(life) << "\n"
                                 << life.plan;
    launches += life.launches;
    machines += life.machines;
    for (const auto& [name, count] : life.reached) reached[name] += count;
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begun;
  for (const auto& [name, count] : reached) {
    std::printf("  %8llu  %s\n", static_cast<unsigned long long>(count), name.c_str());
  }
  std::printf("figures: random lives: %llu lives, %llu launches, %llu machines, %.1f s, %.0f launches/s\n",
              static_cast<unsigned long long>(lives), static_cast<unsigned long long>(launches),
              static_cast<unsigned long long>(machines), seconds.count(),
              static_cast<double>(launches) / seconds.count());
  if (launches < 100'000) {
    std::printf("  too few launches to expect everything of them\n");
    return;
  }
  for (const std::string_view name : toBeReached()) EXPECT_TRUE(reached.contains(name)) << "never reached: " << name;
}

TEST(randomLife, isTheSameEveryTimeTracedOrNot) {
  for (std::uint64_t seed = firstSeed; seed < firstSeed + (thorough ? 4 : 2); ++seed) {
    SCOPED_TRACE(seed);
    constexpr std::uint64_t launches = thorough ? 600 : 60;

    const LifeReport once = liveRandomly(seed, launches);
    const LifeReport again = liveRandomly(seed, launches);
    const LifeReport traced = liveRandomly(seed, launches, Tracing::on);

    EXPECT_EQ(once.digest, again.digest);
    EXPECT_EQ(once.digest, traced.digest);
    EXPECT_EQ(once.calls, traced.calls);
    EXPECT_EQ(once.reached, traced.reached);
    EXPECT_NE(traced.trace, "");
  }
}

TEST(randomLife, isAnotherOneForEachSeed) { EXPECT_NE(liveRandomly(1, 50).digest, liveRandomly(2, 50).digest); }

TEST(randomLife, cutShortIsTheBeginningOfTheWholeOne) {
  const LifeReport brief = liveRandomly(3, 64);
  const LifeReport longer = liveRandomly(3, 65);
  EXPECT_EQ(brief.launches, 64u);
  EXPECT_LT(brief.calls, longer.calls);
}

}  // namespace
}  // namespace launcher_stub::sweeps
