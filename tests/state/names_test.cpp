#include "state/names.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace launcher_stub {
namespace {

struct Case {
  const char* why;
  std::string name;
  bool valid;
};

TEST(slotName, isFourToSixtyFourLowerCaseHexDigits) {
  const Case cases[] = {
      {"shortest", "ab12", true},
      {"one too short", "ab1", false},
      {"empty", "", false},
      {"longest", std::string(64, 'f'), true},
      {"one too long", std::string(65, 'f'), false},
      {"all digits", "0123456789abcdef", true},
      {"upper case", "ABCD", false},
      {"one upper case letter", "abCd", false},
      {"letter behind f", "abcg", false},
      {"the seed is no slot", "seed", false},
      {"space behind", "abcd ", false},
      {"zero byte behind", std::string("abcd\0", 5), false},
      {"path", "../abcd", false},
      {"full-width digits", "\xEF\xBC\x91\xEF\xBC\x92", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(isSlotName(c.name), c.valid);
  }
}

TEST(runnableSlotName, isASlotNameOrTheSeed) {
  const Case cases[] = {
      {"slot name", "ab12", true},
      {"seed", "seed", true},
      {"other case", "Seed", false},
      {"longer", "seeds", false},
      {"shorter", "see", false},
      {"zero byte behind", std::string("seed\0", 5), false},
      {"neither", "beef!", false},
      {"too short for a slot", "abc", false},
      {"longest slot", std::string(64, '0'), true},
      {"too long for a slot", std::string(65, '0'), false},
      {"empty", "", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(isRunnableSlotName(c.name), c.valid);
  }
}

TEST(token, isEightToSixtyFourLettersDigitsDashesAndUnderscores) {
  const Case cases[] = {
      {"shortest", "aB3-_xyz", true},
      {"one too short", "aB3-_xy", false},
      {"empty", "", false},
      {"longest", std::string(64, 'Z'), true},
      {"one too long", std::string(65, 'Z'), false},
      {"dot", "abcdefg.", false},
      {"equals sign", "abcdefg=", false},
      {"slash", "abcdefg/", false},
      {"space", "abcd efg", false},
      {"zero byte", std::string("abcdefg\0", 8), false},
      {"umlauts", "abcd\xC3\xA4\xC3\xB6", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(isToken(c.name), c.valid);
  }
}

TEST(names, admitExactlyTheirBytes) {
  constexpr std::string_view hexDigits = "0123456789abcdef";
  constexpr std::string_view tokenBytes = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  for (int code = 0; code < 256; ++code) {
    SCOPED_TRACE(code);
    const std::string text(8, static_cast<char>(code));
    EXPECT_EQ(isSlotName(text), hexDigits.find(text[0]) != std::string_view::npos);
    EXPECT_EQ(isToken(text), tokenBytes.find(text[0]) != std::string_view::npos);
  }
}

}  // namespace
}  // namespace launcher_stub
