// Long runs of plain bytes are read several at a time: whatever ends a run is found at each place of it.
#include <gtest/gtest.h>

#include "json/messages.h"
#include "tests/json/parsing.h"

namespace launcher_stub {
namespace {

constexpr std::size_t longestRun = 40;

TEST(longString, isReadAsItStandsAtEveryLengthAndWithEveryPlainByte) {
  for (std::size_t length = 0; length <= longestRun; ++length) {
    for (int code = 0x20; code < 0x80; ++code) {
      if (code == '"' || code == '\\') continue;
      const std::string text(length, static_cast<char>(code));
      SCOPED_TRACE(text);

      const Parsed result = parse('"' + text + '"');

      ASSERT_EQ(result.error, "accepted");
      EXPECT_EQ(*result.value.string(), text);
    }
  }
}

TEST(longString, endsOrFailsAtWhateverPlaceTheByteStands) {
  struct Case {
    const char* why;
    std::string bytes;
    std::string_view error;
  };
  const Case cases[] = {
      {"the last control byte", "\x1F", messages::controlInString},
      {"the first control byte", std::string(1, '\0'), messages::controlInString},
      {"a quotation mark", "\"", messages::trailingData},
      {"a backslash before a letter without a meaning", "\\x", messages::badEscape},
      {"a continuation byte alone", "\x80", messages::invalidUtf8},
      {"the highest byte", "\xFF", messages::invalidUtf8},
  };

  for (const Case& c : cases) {
    for (std::size_t length = 0; length <= longestRun; ++length) {
      for (std::size_t place = 0; place <= length; ++place) {
        SCOPED_TRACE(std::string(c.why) + ", " + std::to_string(place) + " of " + std::to_string(length));
        // A byte just above each limit all around: what is less in one place must not spread to the next.
        std::string text(length, ' ');
        text.insert(place, c.bytes);
        EXPECT_EQ(parse('"' + text + "!\"").error, c.error);
      }
    }
  }
}

// Each ends the run of plain bytes at whatever place it stands, and is then an error: a quote with more behind it, an
// unknown escape, a control character, a byte that begins or continues nothing.
TEST(longString, isNotReadPastAByteThatIsNotPlainAtAnyPlace) {
  for (std::size_t place = 0; place < 24; ++place) {
    for (int byte = 0; byte < 256; ++byte) {
      if (byte >= 0x20 && byte < 0x80 && byte != '"' && byte != '\\') continue;
      SCOPED_TRACE(testing::Message() << "byte " << byte << " at " << place);
      for (const char plain : {'k', 'l'}) {  // one odd and one even
        const std::string text = std::string(place, plain) + static_cast<char>(byte) + std::string(24, plain);
        EXPECT_FALSE(parse('"' + text + '"').succeeded);
      }
    }
  }
}

}  // namespace
}  // namespace launcher_stub
