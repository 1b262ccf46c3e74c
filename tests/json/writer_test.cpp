#include "json/writer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <utility>

#include "tests/json/parsing.h"

namespace launcher_stub {
namespace {

JsonValue string(std::string text) { return JsonValue(std::move(text)); }

JsonValue number(std::string text) { return JsonValue(JsonNumber{std::move(text)}); }

TEST(toJsonText, writesEachKindInItsOneForm) {
  struct Case {
    const char* why;
    JsonValue value;
    std::string text;
  };
  const Case cases[] = {
      {"null", JsonValue(), "null"},
      {"true", JsonValue(true), "true"},
      {"false", JsonValue(false), "false"},
      {"number as it stood in the document", number("1.50"), "1.50"},
      {"number with an exponent", number("-0.0E+9"), "-0.0E+9"},
      {"empty string", string(""), R"("")"},
      {"string", string("seed"), R"("seed")"},
      {"empty array", JsonValue(JsonArray{}), "[]"},
      {"empty object", JsonValue(JsonObject{}), "{}"},
      {"one element", JsonValue(JsonArray{JsonValue()}), "[null]"},
      {"several elements, no space", JsonValue(JsonArray{number("1"), string("2"), JsonValue(true)}),
       R"([1,"2",true])"},
      {"one member", JsonValue(JsonObject{{"a", JsonValue()}}), R"({"a":null})"},
      {"members by key, no space", JsonValue(JsonObject{{"b", number("1")}, {"a", number("2")}}), R"({"a":2,"b":1})"},
      {"containers in containers", JsonValue(JsonArray{JsonValue(JsonObject{{"a", JsonValue(JsonArray{})}})}),
       R"([{"a":[]}])"},
      {"key that needs an escape", JsonValue(JsonObject{{"\"\n", JsonValue()}}), R"({"\"\u000a":null})"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(toJsonText(c.value), c.text);
  }
}

TEST(appendJson, keepsWhatTheBufferHoldsAlready) {
  std::string out = "before";

  appendJson(JsonValue(true), out);

  EXPECT_EQ(out, "beforetrue");
}

TEST(appendJsonString, escapesQuoteBackslashAndControlBytesAlone) {
  struct Case {
    const char* why;
    std::string bytes;
    std::string text;
  };
  const Case cases[] = {
      {"quote, backslash, line feed", "\"\\\n", R"("\"\\\u000a")"},
      {"no short form for a tab", "\t", R"("\u0009")"},
      {"zero byte", std::string(1, '\0'), R"("\u0000")"},
      {"last control byte", "\x1F", R"("\u001f")"},
      {"first byte that is none", " ", R"(" ")"},
      {"delete is written raw", "\x7F", "\"\x7F\""},
      {"slash is written raw", "a/b", R"("a/b")"},
      {"UTF-8 is written raw", "\xC3\xA4\xF0\x9F\x9A\x80", "\"\xC3\xA4\xF0\x9F\x9A\x80\""},
      {"bytes that are no UTF-8 are written all the same", "\xFF\x80", "\"\xFF\x80\""},
      {"escapes at both ends and in between", "\nab\ncd\n", R"("\u000aab\u000acd\u000a")"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    std::string out;
    appendJsonString(c.bytes.data(), c.bytes.size(), out);
    EXPECT_EQ(out, c.text);
  }
}

TEST(appendJsonString, writesEveryControlByteWithFourLowerCaseDigits) {
  for (int code = 0; code < 0x20; ++code) {
    char expected[16];
    std::snprintf(expected, sizeof expected, "\"\\u%04x\"", static_cast<unsigned>(code));
    const char byte = static_cast<char>(code);
    std::string out;

    appendJsonString(&byte, 1, out);

    EXPECT_EQ(out, expected);
  }
}

TEST(appendJsonString, takesExactlyTheGivenLength) {
  std::string out;

  appendJsonString("abcdef", 3, out);
  appendJsonString(nullptr, 0, out);

  EXPECT_EQ(out, R"("abc""")");
}

TEST(toJsonText, isReadBackToAnEqualValue) {
  const JsonValue value(JsonObject{
      {"", JsonValue()},
      {"zero", string(std::string(1, '\0'))},
      {"escapes", string("\"\\/\b\f\n\r\t\x01\x1F\x7F")},
      {"text", string("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x9A\x80")},
      {"numbers", JsonValue(JsonArray{number("1.50"), number("-0"), number("1e2")})},
      {"\n", JsonValue(JsonObject{{"nested", JsonValue(true)}})},
  });

  const Parsed parsed = parse(toJsonText(value));

  ASSERT_EQ(parsed.error, "accepted");
  EXPECT_EQ(parsed.value, value);
}

TEST(toJsonText, makesOneTextOfAllSpellingsOfAValue) {
  const Parsed spelled = parse(" { \"b\" : [ 1 , \"\\u0041\\t\\/\" ] ,\r\n\t\"a\" : null } ");

  ASSERT_EQ(spelled.error, "accepted");
  const std::string text = toJsonText(spelled.value);
  EXPECT_EQ(text, R"({"a":null,"b":[1,"A\u0009/"]})");
  EXPECT_EQ(toJsonText(parse(text).value), text);
}

// Values of all kinds, no deeper than the parser accepts.
class RandomValues {
 public:
  explicit RandomValues(std::uint32_t seed) : random_(seed) {}

  JsonValue make(int depth) {
    switch (below(depth < kMaxJsonDepth ? 6 : 4)) {
      case 0:
        return JsonValue();
      case 1:
        return JsonValue(below(2) == 0);
      case 2:
        return number(std::to_string(random_()));
      case 3:
        return string(makeText());
      case 4:
        return makeArray(depth);
      default:
        return makeObject(depth);
    }
  }

 private:
  int below(int limit) { return static_cast<int>(random_() % static_cast<std::uint32_t>(limit)); }

  std::string makeText() {
    const char* const pieces[] = {"a", "\"", "\\", "\n", "\x1F", "\x7F", "/", "\xC3\xA4", "\xF0\x9F\x9A\x80"};
    std::string text;
    for (int left = below(6); left > 0; --left) text += pieces[below(9)];
    return text;
  }

  JsonValue makeArray(int depth) {
    JsonArray elements;
    for (int left = below(4); left > 0; --left) elements.push_back(make(depth + 1));
    return JsonValue(std::move(elements));
  }

  JsonValue makeObject(int depth) {
    JsonObject members;
    for (int left = below(4); left > 0; --left) members.try_emplace(makeText(), make(depth + 1));
    return JsonValue(std::move(members));
  }

  std::mt19937 random_;
};

TEST(toJsonText, isReadBackForRandomValues) {
  constexpr std::uint32_t seed = 20240611;
  RandomValues values(seed);
  int containers = 0;
  for (int round = 0; round < 2000; ++round) {
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", round " << round);
    const JsonValue value = values.make(0);
    const std::string text = toJsonText(value);
    if (text.size() > kMaxRecordBytes) continue;  // written all the same, but no document any more

    const Parsed parsed = parse(text);

    ASSERT_EQ(parsed.error, "accepted") << text;
    ASSERT_EQ(parsed.value, value) << text;
    ASSERT_EQ(toJsonText(parsed.value), text);
    if (value.kind() == JsonKind::Array || value.kind() == JsonKind::Object) ++containers;
  }
  EXPECT_GT(containers, 200);
}

TEST(toJsonText, hasNoLimitOfItsOwn) {
  const JsonValue value = string(std::string(kMaxRecordBytes + 1, 'x'));

  EXPECT_EQ(toJsonText(value).size(), kMaxRecordBytes + 3);
}

}  // namespace
}  // namespace launcher_stub
