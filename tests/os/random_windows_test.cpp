#include "os/random.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

namespace launcher_stub::os {
namespace {

TEST(randomHexDigits, areThirtyTwoLowerCaseDigitsEachTime) {
  for (int count = 0; count < 100; ++count) {
    const std::string digits = randomHexDigits();
    EXPECT_EQ(digits.size(), 32u);
    EXPECT_EQ(digits.find_first_not_of("0123456789abcdef"), std::string::npos) << digits;
  }
}

TEST(randomHexDigits, differEachTimeAndUseEveryDigitInEveryPlace) {
  std::set<std::string> seen;
  std::map<std::size_t, std::set<char>> digitsByPlace;
  for (int count = 0; count < 1000; ++count) {
    const std::string digits = randomHexDigits();
    seen.insert(digits);
    for (std::size_t place = 0; place < digits.size(); ++place) digitsByPlace[place].insert(digits[place]);
  }

  EXPECT_EQ(seen.size(), 1000u);
  // One digit missing from one place by chance: less than one in 10^25.
  for (const auto& [place, digits] : digitsByPlace) EXPECT_EQ(digits.size(), 16u) << "place " << place;
}

}  // namespace
}  // namespace launcher_stub::os
