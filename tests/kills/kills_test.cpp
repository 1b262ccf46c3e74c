// The launcher that ships, ended from outside at any moment of any kind of launch.

#include <gtest/gtest.h>

#include <cstdio>

#include "tests/kills/tally.h"

namespace end_to_end::kills {
namespace {

constexpr std::uint64_t seed = 1;  // the kinds of the kills and their moments; time adds its own chance
constexpr std::size_t shares = 10;
constexpr std::size_t killsOfAShare = 49;
constexpr std::size_t promotions = 10;

void expectNothingWrong(const Tally& tally, std::size_t kills) {
  printLosses(tally);
  for (const std::string& failure : tally.failures) ADD_FAILURE() << failure;
  EXPECT_GE(tally.kills, kills);
  EXPECT_FALSE(lostTooMany(tally));
  const std::string figures = tally.figures();
  std::printf("figures: %s\n", figures.c_str());
  testing::Test::RecordProperty("figures", figures);
}

// In shares, so that they run side by side.
class killedLauncher : public testing::TestWithParam<std::size_t> {};

TEST_P(killedLauncher, leavesWholeDocumentsNoProcessAndALaunchThatGoesOn) {
  expectNothingWrong(killByChance(seed + GetParam() * killsOfAShare, killsOfAShare, 1), killsOfAShare);
}

INSTANTIATE_TEST_SUITE_P(kills, killedLauncher, testing::Range(std::size_t{0}, shares));

TEST(killedLauncherInPromotion, isPromotedWhollyOrNotAtAll) {
  expectNothingWrong(killInPromotions(seed, promotions, promotions), promotions);
}

}  // namespace
}  // namespace end_to_end::kills
