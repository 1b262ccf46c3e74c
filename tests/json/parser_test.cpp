#include "json/parser.h"

#include <gtest/gtest.h>

#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "json/messages.h"
#include "json/writer.h"
#include "tests/json/parsing.h"

namespace launcher_stub {
namespace {

constexpr std::string_view accepted = "accepted";

struct Case {
  const char* why;
  std::string document;
  std::string_view outcome;  // the error, or `accepted`
};

void checkOutcomes(std::span<const Case> cases) {
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.why << ": " << c.document.substr(0, 80));
    const Parsed parsed = parse(c.document);
    EXPECT_EQ(parsed.error, c.outcome);
    EXPECT_EQ(parsed.succeeded, c.outcome == accepted);
  }
}

JsonCursor cursorAt(std::string_view text) {
  return {.data = text.data(), .length = text.size(), .position = 0, .error = {}};
}

// --- Whole documents ---

TEST(parseJsonDocument, reportsEachOfItsMessages) {
  // "expected string" is missing: a document cannot bring it up, see the step's own test below.
  const Case cases[] = {
      {"one byte too many", quoted(std::string(65535, ' ')), messages::recordTooLarge},
      {"second value", "1 2", messages::trailingData},
      {"value at depth 9", nestedArrays(9, "1"), messages::depthExceeded},
      {"nothing", "", messages::missingValue},
      {"no value begins like this", "x", messages::invalidNumber},
      {"no comma", "[1 2]", messages::arraySyntax},
      {"no colon", R"({"a" 1})", messages::objectSyntax},
      {"same key twice", R"({"a":1,"a":1})", messages::duplicateKey},
      {"no closing quote", R"("a)", messages::unterminatedString},
      {"raw tab", "\"\t\"", messages::controlInString},
      {"unknown letter", R"("\x")", messages::badEscape},
      {"not hexadecimal", R"("\u00g0")", messages::badUnicodeEscape},
      {"high surrogate alone", R"("\ud800")", messages::missingLowSurrogate},
      {"high surrogate twice", R"("\ud800\ud800")", messages::badLowSurrogate},
      {"low surrogate alone", R"("\udc00")", messages::unpairedLowSurrogate},
      {"lone continuation byte", "\"\x80\"", messages::invalidUtf8},
      {"4097 bytes", quoted(std::string(4097, 'a')), messages::stringTooLong},
  };
  checkOutcomes(cases);
}

TEST(parseJsonDocument, leavesTheErrorAloneOnSuccess) {
  JsonValue value;
  std::string error = "untouched";

  EXPECT_TRUE(parseJsonDocument("1", 1, value, error));
  EXPECT_EQ(error, "untouched");
}

TEST(parseJsonDocument, acceptsAtMost65536Bytes) {
  const std::string_view tail = "true";
  const Case cases[] = {
      {"largest, padded in front", std::string(65536 - tail.size(), ' ').append(tail), accepted},
      {"largest, padded behind", std::string(tail) + std::string(65536 - tail.size(), '\n'), accepted},
      {"valid, but one too many", std::string(65537 - tail.size(), ' ').append(tail), messages::recordTooLarge},
      {"size comes before content", std::string(65537, 'x'), messages::recordTooLarge},
  };
  checkOutcomes(cases);
}

TEST(parseJsonDocument, needsOneValueAndNothingBehindIt) {
  const Case cases[] = {
      {"empty", "", messages::missingValue},
      {"only white space", " \t\r\n", messages::missingValue},
      {"white space around", " \t\r\n1 \t\r\n", accepted},
      {"true, space, x", "true x", messages::trailingData},
      {"second container", "{}{}", messages::trailingData},
      {"zero byte behind", std::string("1\0", 2), messages::trailingData},
      {"comment behind", "1 //", messages::trailingData},
      {"closing bracket too many", "[]]", messages::trailingData},
      {"byte-order mark", "\xEF\xBB\xBF{}", messages::invalidNumber},
      {"comment in front", "/**/1", messages::invalidNumber},
      {"vertical tab is no white space", "\v1", messages::invalidNumber},
      {"form feed is no white space", "\f1", messages::invalidNumber},
      {"no-break space is no white space",
       "\xC2\xA0"
       "1",
       messages::invalidNumber},
      {"zero byte is no white space",
       std::string("\0"
                   "1",
                   2),
       messages::invalidNumber},
  };
  checkOutcomes(cases);
}

TEST(parseJsonDocument, acceptsAnyKindAtTheTop) {
  struct KindCase {
    const char* document;
    JsonKind kind;
  };
  const KindCase cases[] = {{"null", JsonKind::Null},   {"true", JsonKind::Bool}, {"-1", JsonKind::Number},
                            {"\"\"", JsonKind::String}, {"[]", JsonKind::Array},  {"{}", JsonKind::Object}};
  for (const KindCase& c : cases) {
    SCOPED_TRACE(c.document);
    const Parsed parsed = parse(c.document);
    EXPECT_EQ(parsed.error, accepted);
    EXPECT_EQ(parsed.value.kind(), c.kind);
  }
}

TEST(parseJsonDocument, readsValuesInEveryPlace) {
  const Parsed parsed = parse(" { \"list\" : [ 1 , [ ] , { } , true , false , null ] , \"text\" : \"a\" } ");

  ASSERT_EQ(parsed.error, accepted);
  JsonArray list;
  list.emplace_back(JsonNumber{"1"});
  list.emplace_back(JsonArray{});
  list.emplace_back(JsonObject{});
  list.emplace_back(true);
  list.emplace_back(false);
  list.emplace_back();
  EXPECT_EQ(parsed.value,
            JsonValue(JsonObject{{"list", JsonValue(std::move(list))}, {"text", JsonValue(std::string("a"))}}));
}

// --- Depth ---

TEST(parseJsonDocument, allowsValuesAtDepthsZeroToEight) {
  const Case cases[] = {
      {"nine empty arrays: the innermost at depth 8", nestedArrays(9, ""), accepted},
      {"ten empty arrays", nestedArrays(10, ""), messages::depthExceeded},
      {"number at depth 8", nestedArrays(8, "1"), accepted},
      {"number at depth 9", nestedArrays(9, "1"), messages::depthExceeded},
      {"member value at depth 8", repeated(8, "{\"a\":") + "1" + repeated(8, "}"), accepted},
      {"member value at depth 9", repeated(9, "{\"a\":") + "1" + repeated(9, "}"), messages::depthExceeded},
      {"empty object at depth 8", nestedArrays(8, "{}"), accepted},
      {"depth is tested before the end of input", repeated(9, "["), messages::depthExceeded},
      {"end of input at depth 8", repeated(8, "["), messages::missingValue},
      {"depth is tested before the content", repeated(9, "[") + "x", messages::depthExceeded},
      {"as deep as a document can be", repeated(65536, "["), messages::depthExceeded},
      {"side by side does not add up", "[" + repeated(20, "[[]],") + "[]]", accepted},
  };
  checkOutcomes(cases);
}

// --- Literals ---

TEST(parseJsonDocument, endsALiteralWithItsLastLetter) {
  const Case cases[] = {
      {"rest at the top", "truex", messages::trailingData},
      {"rest in an array", "[nullx]", messages::arraySyntax},
      {"rest in an object", R"({"a":falsex})", messages::objectSyntax},
      {"two literals", "truefalse", messages::trailingData},
      {"cut short", "tru", messages::invalidNumber},
      {"cut short in an array", "[nul]", messages::invalidNumber},
      {"upper case", "True", messages::invalidNumber},
      {"upper case later on", "nuLl", messages::invalidNumber},
      {"no literal of this format", "NaN", messages::invalidNumber},
  };
  checkOutcomes(cases);
}

// --- Numbers ---

TEST(parseJsonDocument, readsNumbersOfTheGrammar) {
  const Case cases[] = {
      {"zero", "0", accepted},
      {"negative zero", "-0", accepted},
      {"digits", "1234567890", accepted},
      {"fraction", "1.50", accepted},
      {"exponent of zero", "0.0e-0", accepted},
      {"upper case exponent", "1E+9", accepted},
      {"exponent without sign", "1e2", accepted},
      {"leading zeros in the exponent", "1e007", accepted},
      {"longer than any machine number", std::string(5000, '9'), accepted},
      {"zero ends the number", "01", messages::trailingData},
      {"negative zero ends it too", "-01", messages::trailingData},
      {"zero ends it in an array", "[01]", messages::arraySyntax},
      {"zero ends it in an object", R"({"a":01})", messages::objectSyntax},
      {"letter behind", "1x", messages::trailingData},
      {"second fraction", "1.2.3", messages::trailingData},
      {"second exponent", "1e2e3", messages::trailingData},
      {"sign alone", "-", messages::invalidNumber},
      {"sign and no digit", "-x", messages::invalidNumber},
      {"two signs", "--1", messages::invalidNumber},
      {"space behind the sign", "- 1", messages::invalidNumber},
      {"no digit behind the point, at the end", "1.", messages::invalidNumber},
      {"no digit behind the point", "[1.]", messages::invalidNumber},
      {"exponent behind the point", "1.e1", messages::invalidNumber},
      {"point first", ".5", messages::invalidNumber},
      {"plus first", "+1", messages::invalidNumber},
      {"no exponent, at the end", "1e", messages::invalidNumber},
      {"no exponent", "[1e]", messages::invalidNumber},
      {"no digit in the exponent, at the end", "1e+", messages::invalidNumber},
      {"no digit in the exponent", "[1E-]", messages::invalidNumber},
      {"two signs in the exponent", "1e+-1", messages::invalidNumber},
      {"letter", "a", messages::invalidNumber},
      {"colon", ":", messages::invalidNumber},
  };
  checkOutcomes(cases);
}

TEST(parseJsonDocument, keepsTheTextOfANumber) {
  for (const char* text : {"1.50", "-0", "1e2", "-12.340E-05", "100"}) {
    SCOPED_TRACE(text);
    const Parsed parsed = parse(std::string(" ") + text + " ");
    ASSERT_EQ(parsed.value.kind(), JsonKind::Number);
    EXPECT_EQ(*parsed.value.number(), text);
  }
  EXPECT_NE(parse("1e2").value, parse("100").value);
}

TEST(parseJsonDocument, keepsAQuotedNumberAString) { EXPECT_EQ(parse(R"("1")").value.kind(), JsonKind::String); }

// --- Containers ---

TEST(parseJsonDocument, holdsArraysToTheirSyntax) {
  const Case cases[] = {
      {"empty", "[ ]", accepted},
      {"trailing comma", "[1,]", messages::invalidNumber},
      {"leading comma", "[,1]", messages::invalidNumber},
      {"two commas", "[1,,2]", messages::invalidNumber},
      {"no comma", "[1 2]", messages::arraySyntax},
      {"wrong closing bracket", "[1}", messages::arraySyntax},
      {"colon in an array", R"(["a":1])", messages::arraySyntax},
      {"end behind an element", "[1", messages::arraySyntax},
      {"end behind a comma", "[1,", messages::missingValue},
      {"end behind the bracket", "[ ", messages::missingValue},
      {"fault of an element", R"(["\x"])", messages::badEscape},
  };
  checkOutcomes(cases);
}

TEST(parseJsonDocument, holdsObjectsToTheirSyntax) {
  const Case cases[] = {
      {"empty", "{ }", accepted},
      {"empty key", R"({"":1})", accepted},
      {"trailing comma", R"({"a":1,})", messages::objectSyntax},
      {"leading comma", R"({,"a":1})", messages::objectSyntax},
      {"no colon", R"({"a" 1})", messages::objectSyntax},
      {"key alone", R"({"a"})", messages::objectSyntax},
      {"no comma", R"({"a":1 "b":2})", messages::objectSyntax},
      {"wrong closing bracket", R"({"a":1])", messages::objectSyntax},
      {"end behind the brace", "{", messages::objectSyntax},
      {"end behind a key", R"({"a")", messages::objectSyntax},
      {"end behind a colon", R"({"a":)", messages::missingValue},
      {"end behind a member", R"({"a":1)", messages::objectSyntax},
      {"end behind a comma", R"({"a":1,)", messages::objectSyntax},
      {"no value", R"({"a":})", messages::invalidNumber},
      {"fault of a member's value", R"({"a":[1 2]})", messages::arraySyntax},
  };
  checkOutcomes(cases);
}

TEST(parseJsonDocument, reportsEveryFaultOfAKeyAsTheObjects) {
  const Case cases[] = {
      {"a number", "{1:1}", messages::objectSyntax},
      {"no quotes", "{a:1}", messages::objectSyntax},
      {"bad escape", R"({"\x":1})", messages::objectSyntax},
      {"bad unicode escape", R"({"\u12":1})", messages::objectSyntax},
      {"unpaired surrogate", R"({"\udc00":1})", messages::objectSyntax},
      {"invalid UTF-8", "{\"\x80\":1}", messages::objectSyntax},
      {"the same byte in a value", "{\"a\":\"\x80\"}", messages::invalidUtf8},
      {"control byte", "{\"\n\":1}", messages::objectSyntax},
      {"unterminated", R"({"a)", messages::objectSyntax},
      {"longest key", "{" + quoted(std::string(4096, 'k')) + ":1}", accepted},
      {"one byte too long", "{" + quoted(std::string(4097, 'k')) + ":1}", messages::objectSyntax},
  };
  checkOutcomes(cases);
}

TEST(parseJsonDocument, refusesARepeatedKey) {
  const Case cases[] = {
      {"same key", R"({"a":1,"a":2})", messages::duplicateKey},
      {"same value too", R"({"a":1,"a":1})", messages::duplicateKey},
      {"not next to each other", R"({"a":1,"b":1,"a":1})", messages::duplicateKey},
      {"same key in another spelling", R"({"a":1,"\u0061":2})", messages::duplicateKey},
      {"empty key", R"({"":1,"":2})", messages::duplicateKey},
      {"the second value is read first", R"({"a":1,"a":x})", messages::invalidNumber},
      {"before what follows it", R"({"a":1,"a":2 x)", messages::duplicateKey},
      {"before a fault in a later value", R"({"a":1,"a":2,"b":[{"c":x}]})", messages::duplicateKey},
      {"before the end of input", R"({"a":1,"a":2,)", messages::duplicateKey},
      {"before too deep a value", R"({"a":1,"a":2,"b":)" + nestedArrays(9, "1"), messages::duplicateKey},
      {"but not before a fault ahead of it", R"({"a":1,"b":x,"a":2})", messages::invalidNumber},
      {"in a closed object, before a fault behind it", R"([{"a":1,"a":2},x])", messages::duplicateKey},
      {"in an inner object", R"({"a":{"b":1,"b":2}})", messages::duplicateKey},
      {"in an inner object, not closed", R"({"a":{"b":1,"b":2 x)", messages::duplicateKey},
      {"of a member that is not complete", R"({"a":1,"a":)", messages::missingValue},
      {"other case", R"({"a":1,"A":2})", accepted},
      {"differs in a zero byte at the end", R"({"a":1,"a\u0000":2})", accepted},
      {"inner object", R"({"a":{"a":1}})", accepted},
      {"differs behind a zero byte", R"({"a\u0000b":1,"a\u0000c":2})", accepted},
  };
  checkOutcomes(cases);
}

// --- Strings ---

TEST(parseJsonDocument, decodesStrings) {
  struct TextCase {
    const char* why;
    std::string inside;
    std::string decoded;
  };
  const TextCase cases[] = {
      {"empty", "", ""},
      {"plain", "seed", "seed"},
      {"white space is content", "  a ", "  a "},
      {"every escape", R"(\"\\\/\b\f\n\r\t)", "\"\\/\b\f\n\r\t"},
      {"escapes among plain bytes", R"(a\nb\tc)", "a\nb\tc"},
      {"delete is allowed", "\x7F", "\x7F"},
      {"zero", R"(\u0000)", std::string(1, '\0')},
      {"zero among others", R"(a\u0000b)", std::string("a\0b", 3)},
      {"last of one byte", R"(\u007f)", "\x7F"},
      {"first of two bytes", R"(\u0080)", "\xC2\x80"},
      {"last of two bytes", R"(\u07FF)", "\xDF\xBF"},
      {"first of three bytes", R"(\u0800)", "\xE0\xA0\x80"},
      {"last before the surrogates", R"(\ud7ff)", "\xED\x9F\xBF"},
      {"first behind the surrogates", R"(\ue000)", "\xEE\x80\x80"},
      {"last of three bytes", R"(\uFFFF)", "\xEF\xBF\xBF"},
      {"first of four bytes", R"(\ud800\udc00)", "\xF0\x90\x80\x80"},
      {"inner pair", R"(\uD83D\uDE80)", "\xF0\x9F\x9A\x80"},
      {"last of four bytes", R"(\udbff\udfff)", "\xF4\x8F\xBF\xBF"},
      {"digits behind an escape", R"(\u00411)", "A1"},
      {"escaped backslash before a u", R"(\\u0041)", "\\u0041"},
      {"raw, two bytes", "\xC2\x80\xDF\xBF", "\xC2\x80\xDF\xBF"},
      {"raw, three bytes", "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF",
       "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"},
      {"raw, four bytes", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
      {"raw byte-order mark inside", "\xEF\xBB\xBF", "\xEF\xBB\xBF"},
  };
  for (const TextCase& c : cases) {
    SCOPED_TRACE(c.why);
    const Parsed parsed = parse(quoted(c.inside));
    ASSERT_EQ(parsed.error, accepted);
    EXPECT_EQ(parsed.value, JsonValue(c.decoded));
  }
}

TEST(parseJsonDocument, refusesEveryRawControlByte) {
  for (int code = 0; code < 0x20; ++code) {
    const std::string byte(1, static_cast<char>(code));
    EXPECT_EQ(parse(quoted("a" + byte + "b")).error, messages::controlInString) << code;
  }
  EXPECT_EQ(parse("\"\n").error, messages::controlInString);
}

TEST(parseJsonDocument, knowsNineEscapeLettersAndNoOthers) {
  constexpr std::string_view known = "\"\\/bfnrtu";
  for (int code = 0; code < 256; ++code) {
    const char letter = static_cast<char>(code);
    // Four digits follow, so that a "u" is complete.
    const bool expected = known.find(letter) != std::string_view::npos;
    const std::string document = std::string("\"\\") + letter + "0000\"";
    EXPECT_EQ(parse(document).error, expected ? accepted : messages::badEscape) << code;
  }
}

TEST(parseJsonDocument, holdsEscapesToTheirSyntax) {
  const Case cases[] = {
      {"backslash is the last byte", R"("\)", messages::badEscape},
      {"backslash behind text is the last byte", R"("abc\)", messages::badEscape},
      {"only the quote follows", R"("\")", messages::unterminatedString},
      {"no digits", R"("\u")", messages::badUnicodeEscape},
      {"no input", R"("\u)", messages::badUnicodeEscape},
      {"three digits and the end", R"("\u004)", messages::badUnicodeEscape},
      {"three digits and the quote", R"("\u004")", messages::badUnicodeEscape},
      {"four digits and the end", R"("\u0041)", messages::unterminatedString},
      {"before the digits", R"("\u/041")", messages::badUnicodeEscape},
      {"behind the digits", R"("\u:041")", messages::badUnicodeEscape},
      {"before the upper case letters", R"("\u@041")", messages::badUnicodeEscape},
      {"behind the upper case letters", R"("\uG041")", messages::badUnicodeEscape},
      {"before the lower case letters", R"("\u`041")", messages::badUnicodeEscape},
      {"behind the lower case letters", R"("\ug041")", messages::badUnicodeEscape},
      {"last digit wrong", R"("\u004g")", messages::badUnicodeEscape},
      {"sign", R"("\u+041")", messages::badUnicodeEscape},
      {"upper case u", R"("\U0041")", messages::badEscape},
  };
  checkOutcomes(cases);
}

TEST(parseJsonDocument, pairsSurrogateEscapes) {
  const Case cases[] = {
      {"high and the end of the string", R"("\ud800")", messages::missingLowSurrogate},
      {"high and the end of input", R"("\ud800)", messages::missingLowSurrogate},
      {"high and a lone backslash", R"("\ud800\)", messages::missingLowSurrogate},
      {"high and another escape", R"("\ud800\n0000")", messages::missingLowSurrogate},
      {"high and text", R"("\ud800xu0000")", messages::missingLowSurrogate},
      {"last high", R"("\udbff")", messages::missingLowSurrogate},
      {"high and too few digits", R"("\ud800\udc0)", messages::badUnicodeEscape},
      {"high and no digits", R"("\ud800\uxyzw")", messages::badUnicodeEscape},
      {"below the low ones", R"("\ud800\udbff")", messages::badLowSurrogate},
      {"above the low ones", R"("\ud800\ue000")", messages::badLowSurrogate},
      {"ordinary character second", R"("\ud800\u0041")", messages::badLowSurrogate},
      {"first low alone", R"("\udc00")", messages::unpairedLowSurrogate},
      {"last low alone", R"("\udfff")", messages::unpairedLowSurrogate},
      {"low behind a pair", R"("\ud800\udc00\udc00")", messages::unpairedLowSurrogate},
      {"low behind another character", R"("\u0041\udc00")", messages::unpairedLowSurrogate},
  };
  checkOutcomes(cases);
}

TEST(parseJsonDocument, refusesMalformedUtf8) {
  const Case cases[] = {
      {"continuation byte first", quoted("\x80"), messages::invalidUtf8},
      {"last continuation byte first", quoted("\xBF"), messages::invalidUtf8},
      {"overlong zero", quoted("\xC0\x80"), messages::invalidUtf8},
      {"overlong, greatest", quoted("\xC1\xBF"), messages::invalidUtf8},
      {"overlong in three", quoted("\xE0\x9F\xBF"), messages::invalidUtf8},
      {"overlong in four", quoted("\xF0\x8F\xBF\xBF"), messages::invalidUtf8},
      {"first surrogate", quoted("\xED\xA0\x80"), messages::invalidUtf8},
      {"last surrogate", quoted("\xED\xBF\xBF"), messages::invalidUtf8},
      {"above the last code point", quoted("\xF4\x90\x80\x80"), messages::invalidUtf8},
      {"lead byte F5", quoted("\xF5\x80\x80\x80"), messages::invalidUtf8},
      {"lead byte FF", quoted("\xFF\x80\x80\x80"), messages::invalidUtf8},
      {"two bytes, input ends", "\"\xC3", messages::invalidUtf8},
      {"three bytes, input ends", "\"\xE2\x82", messages::invalidUtf8},
      {"four bytes, input ends", "\"\xF0\x9F\x9A", messages::invalidUtf8},
      {"quote instead of a continuation", "\"\xC3\"", messages::invalidUtf8},
      {"letter as the second byte",
       quoted("\xC3"
              "a"),
       messages::invalidUtf8},
      {"lead byte as the second byte", quoted("\xC3\xC3"), messages::invalidUtf8},
      {"letter as the third byte",
       quoted("\xE2\x82"
              "a"),
       messages::invalidUtf8},
      {"letter as the fourth byte",
       quoted("\xF0\x9F\x9A"
              "a"),
       messages::invalidUtf8},
      {"behind valid text", quoted("abc\xC3\xA4\x80"), messages::invalidUtf8},
      {"complete, then the input ends", "\"\xC3\xA4", messages::unterminatedString},
  };
  checkOutcomes(cases);
}

TEST(parseJsonDocument, acceptsExactlyTheEncodedCodePoints) {
  // Every two-byte string that holds one lead byte, and every second byte of the three-byte forms.
  int twoByteForms = 0;
  int threeByteForms = 0;
  for (int lead = 0x80; lead < 0x100; ++lead) {
    for (int second = 0; second < 0x100; ++second) {
      const std::string pair{static_cast<char>(lead), static_cast<char>(second)};
      if (parse(quoted(pair)).succeeded) ++twoByteForms;
      if (parse(quoted(pair + '\x80')).succeeded) ++threeByteForms;
    }
  }
  EXPECT_EQ(twoByteForms, 0x800 - 0x80);
  EXPECT_EQ(threeByteForms, (0x10000 - 0x800 - 0x800) / 64);  // one of 64 ends in 0x80; the surrogates are missing
}

TEST(parseJsonDocument, acceptsDecodedStringsOfAtMost4096Bytes) {
  const std::string umlaut = "\xC3\xA4";
  const Case cases[] = {
      {"longest", quoted(std::string(4096, 'a')), accepted},
      {"one too long", quoted(std::string(4097, 'a')), messages::stringTooLong},
      {"a character that ends at the limit", quoted(std::string(4094, 'a') + umlaut), accepted},
      {"a character across the limit", quoted(std::string(4095, 'a') + umlaut), messages::stringTooLong},
      {"a pair that ends at the limit", quoted(std::string(4092, 'a') + R"(\ud83d\ude80)"), accepted},
      {"a pair across the limit", quoted(std::string(4093, 'a') + R"(\ud83d\ude80)"), messages::stringTooLong},
      {"the decoded length counts", quoted(repeated(4096, R"(\n)")), accepted},
      {"one escape too many", quoted(repeated(4097, R"(\n)")), messages::stringTooLong},
      {"umlauts", quoted(repeated(2048, umlaut)), accepted},
      {"one umlaut too many", quoted(repeated(2049, umlaut)), messages::stringTooLong},
      {"one run behind another", quoted(std::string(4000, 'a') + umlaut + std::string(95, 'a')),
       messages::stringTooLong},
      {"several long ones", "[" + quoted(std::string(4096, 'a')) + "," + quoted(std::string(4096, 'a')) + "]",
       accepted},
  };
  checkOutcomes(cases);
}

TEST(parseJsonDocument, reportsTheFirstFaultOfALongString) {
  const std::string full(4096, 'a');
  const Case cases[] = {
      {"too long comes before unterminated", '"' + full + 'a', messages::stringTooLong},
      {"full and unterminated", '"' + full, messages::unterminatedString},
      {"far too long and unterminated", '"' + std::string(60000, 'a'), messages::stringTooLong},
      {"full, then a bad escape", quoted(full + R"(\x)"), messages::badEscape},
      {"full, then a control byte", quoted(full + '\n'), messages::controlInString},
      {"full, then invalid UTF-8", quoted(full + '\x80'), messages::invalidUtf8},
      {"too long, then a bad escape", quoted(full + R"(a\x)"), messages::stringTooLong},
      {"too long, then a control byte", quoted(full + "a\n"), messages::stringTooLong},
      {"too long, then invalid UTF-8", quoted(full + "a\x80"), messages::stringTooLong},
      {"a bad escape, then too long", quoted(R"(\x)" + full + 'a'), messages::badEscape},
  };
  checkOutcomes(cases);
}

TEST(parseJsonDocument, reportsAnUnterminatedStringAtEveryPlace) {
  for (const char* document : {"\"", "\"a", "\"\\n", "\"\\\"", "[\"", "[\"a", "{\"a\":\"", "{\"a\":\"b"}) {
    EXPECT_EQ(parse(document).error, messages::unterminatedString) << document;
  }
}

// --- Damaged documents ---

constexpr std::string_view damagedDocument =
    " {\"text\": \"a\\n\\u0041\\ud83d\\ude80 \xC3\xA4\xE2\x82\xAC\", \"list\":[1, -2.50e+3,true,false,null,{},[ ]], "
    "\"\\\"\" : {\"a\":0} }";

TEST(parseJsonDocument, refusesADocumentCutAtAnyLength) {
  ASSERT_EQ(parse(damagedDocument).error, accepted);
  for (std::size_t length = 0; length < damagedDocument.size(); ++length) {
    SCOPED_TRACE(length);
    const Parsed parsed = parse(damagedDocument.substr(0, length));
    EXPECT_FALSE(parsed.succeeded);
    EXPECT_NE(parsed.error, accepted);
    EXPECT_NE(parsed.error, "");
  }
}

TEST(parseJsonDocument, reportsAKnownTextForEveryChangedByteOrReadsAValue) {
  const std::set<std::string_view> known = {
      messages::trailingData,         messages::missingValue,    messages::invalidNumber,
      messages::arraySyntax,          messages::objectSyntax,    messages::duplicateKey,
      messages::unterminatedString,   messages::controlInString, messages::badEscape,
      messages::badUnicodeEscape,     messages::badLowSurrogate, messages::missingLowSurrogate,
      messages::unpairedLowSurrogate, messages::invalidUtf8};
  std::set<std::string> seen;
  for (std::size_t place = 0; place < damagedDocument.size(); ++place) {
    for (int code = 0; code < 256; ++code) {
      std::string document(damagedDocument);
      document[place] = static_cast<char>(code);
      SCOPED_TRACE(testing::Message() << "byte " << place << " is " << code);
      const Parsed parsed = parse(document);
      if (parsed.succeeded) {
        const std::string text = toJsonText(parsed.value);
        ASSERT_EQ(parse(text).value, parsed.value);
      } else {
        ASSERT_TRUE(known.contains(parsed.error)) << parsed.error;
        seen.insert(parsed.error);
      }
    }
  }
  EXPECT_GE(seen.size(), 10u);
}

// --- Steps ---

TEST(expectByte, consumesWhiteSpaceAndTheByte) {
  JsonCursor cursor = cursorAt(" \t\r\n:x");

  EXPECT_TRUE(expectByte(cursor, ':'));
  EXPECT_EQ(cursor.position, 5u);
  EXPECT_EQ(cursor.error, "");
}

TEST(expectByte, leavesAnotherByteAndSetsNoMessage) {
  JsonCursor cursor = cursorAt("x");
  JsonCursor ended = cursorAt("");

  EXPECT_FALSE(expectByte(cursor, ':'));
  EXPECT_EQ(cursor.position, 0u);
  EXPECT_EQ(cursor.error, "");
  EXPECT_FALSE(expectByte(ended, ':'));
  EXPECT_EQ(ended.error, "");
}

TEST(readHex4, knowsEveryDigitInBothCasesAndNoOther) {
  const std::string_view digits = "0123456789abcdef0123456789ABCDEF";
  for (std::size_t i = 0; i < digits.size(); ++i) {
    SCOPED_TRACE(digits[i]);
    const std::string text = std::string("100") + digits[i];
    JsonCursor cursor = cursorAt(text);
    std::uint32_t codeUnit = 0;

    EXPECT_TRUE(readHex4(cursor, codeUnit));
    EXPECT_EQ(codeUnit, 0x1000 + i % 16);
  }
  for (const char neighbour : {'/', ':', '@', 'G', '`', 'g'}) {
    SCOPED_TRACE(neighbour);
    const std::string text = std::string("100") + neighbour;
    JsonCursor cursor = cursorAt(text);
    std::uint32_t codeUnit = 0;

    EXPECT_FALSE(readHex4(cursor, codeUnit));
    EXPECT_EQ(cursor.error, messages::badUnicodeEscape);
  }
}

TEST(parseJsonString, refusesEveryByteThatBeginsNoCharacterWhateverFollows) {
  for (int lead = 0x80; lead <= 0xFF; ++lead) {
    if (lead >= 0xC2 && lead <= 0xF4) continue;
    for (std::size_t continuations = 0; continuations <= 5; ++continuations) {
      SCOPED_TRACE(testing::Message() << lead << ", " << continuations);
      const std::string text = '"' + std::string(1, static_cast<char>(lead)) + std::string(continuations, '\x90') + '"';
      JsonCursor cursor = cursorAt(text);
      std::string bytes;

      EXPECT_FALSE(parseJsonString(cursor, bytes));
      EXPECT_EQ(cursor.error, messages::invalidUtf8);
    }
  }
}

TEST(parseJsonString, reportsThatAStringWasExpected) {
  for (const char* text : {"", "  ", "1", "a", "'a'", "}"}) {
    SCOPED_TRACE(text);
    JsonCursor cursor = cursorAt(text);
    std::string bytes;
    EXPECT_FALSE(parseJsonString(cursor, bytes));
    EXPECT_EQ(cursor.error, messages::expectedString);
  }
}

TEST(parseJsonString, stopsBehindTheClosingQuote) {
  JsonCursor cursor = cursorAt(" \"ab\" \"c\"");
  std::string bytes = "old";

  EXPECT_TRUE(parseJsonString(cursor, bytes));
  EXPECT_EQ(bytes, "ab");
  EXPECT_EQ(cursor.position, 5u);
}

TEST(parseJsonString, makesItsOwnRoom) {
  const std::string text(kMaxStringBytes, 'x');
  const std::string document = '"' + text + '"';
  JsonCursor cursor = cursorAt(document);
  std::string bytes;

  EXPECT_TRUE(parseJsonString(cursor, bytes));
  EXPECT_EQ(bytes, text);
}

TEST(parseJsonValue, replacesAnEarlierMessage) {
  JsonCursor cursor = cursorAt("[1 2]");
  cursor.error = "earlier";
  JsonValue value;

  EXPECT_FALSE(parseJsonValue(cursor, value, 0));
  EXPECT_EQ(cursor.error, messages::arraySyntax);
}

TEST(parseJsonValue, leavesWhatFollowsTheValue) {
  struct PositionCase {
    const char* document;
    std::uint64_t position;
  };
  const PositionCase cases[] = {{"truex", 4}, {"nullnull", 4}, {"01", 1}, {"-0.5e1x", 6}, {"[] ", 2}, {"{}}", 2}};
  for (const PositionCase& c : cases) {
    SCOPED_TRACE(c.document);
    JsonCursor cursor = cursorAt(c.document);
    JsonValue value;
    EXPECT_TRUE(parseJsonValue(cursor, value, 0));
    EXPECT_EQ(cursor.position, c.position);
  }
}

TEST(parseJsonValue, testsTheDepthFirst) {
  for (const char* document : {"", "1", "[]", "x"}) {
    SCOPED_TRACE(document);
    JsonCursor cursor = cursorAt(document);
    JsonValue value;
    EXPECT_FALSE(parseJsonValue(cursor, value, kMaxJsonDepth + 1));
    EXPECT_EQ(cursor.error, messages::depthExceeded);
  }
}

TEST(readHex4, readsFourDigitsOfEitherCase) {
  struct DigitsCase {
    const char* digits;
    std::uint32_t codeUnit;
  };
  const DigitsCase cases[] = {{"0000", 0}, {"0019", 0x19}, {"aBcD", 0xABCD}, {"ffff", 0xFFFF}, {"F9f0", 0xF9F0}};
  for (const DigitsCase& c : cases) {
    SCOPED_TRACE(c.digits);
    JsonCursor cursor = cursorAt(c.digits);
    std::uint32_t codeUnit = 1;
    EXPECT_TRUE(readHex4(cursor, codeUnit));
    EXPECT_EQ(codeUnit, c.codeUnit);
    EXPECT_EQ(cursor.position, 4u);
  }
}

}  // namespace
}  // namespace launcher_stub
