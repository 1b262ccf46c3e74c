#include "state/document.h"

#include <gtest/gtest.h>

#include <string>

#include "json/writer.h"
#include "tests/state/record_cases.h"

namespace launcher_stub {
namespace {

JsonObject members() {
  JsonObject result;
  result.try_emplace("text", JsonValue(std::string("value")));
  result.try_emplace("number", JsonNumber{"42"});
  result.try_emplace("fraction", JsonNumber{"4.2"});
  result.try_emplace("digits", JsonValue(std::string("42")));
  result.try_emplace("null", JsonValue());
  return result;
}

TEST(checkDocumentHeader, acceptsSchemaVersionOneAlone) {
  checkHeaderRules<JsonValue>(checkDocumentHeader, "\"other\":0");
}

TEST(checkDocumentHeader, givesTheObject) {
  JsonValue value;
  std::string error;

  ASSERT_TRUE(checkDocumentHeader(documentWith("\"a\":true"), value, error));
  EXPECT_EQ(value, JsonValue(JsonObject{{"schemaVersion", JsonValue(JsonNumber{"1"})}, {"a", JsonValue(true)}}));
}

TEST(checkDocumentHeader, takesAnEmptyViewWithoutMemory) {
  JsonValue value;
  std::string error;

  EXPECT_FALSE(checkDocumentHeader(std::string_view(), value, error));
  EXPECT_EQ(error, "missing value");
}

TEST(parseUnsigned, takesDigitsUpToTheEndOf64Bits) {
  struct Case {
    const char* why;
    std::string_view digits;
    std::optional<std::uint64_t> number;
  };
  const Case cases[] = {
      {"zero", "0", 0},
      {"greatest of 32 bits", "4294967295", 4294967295u},
      {"one more", "4294967296", 4294967296u},
      {"greatest", "18446744073709551615", 18446744073709551615u},
      {"one more", "18446744073709551616", std::nullopt},
      {"many more", "99999999999999999999999999999999", std::nullopt},
      {"nothing", "", std::nullopt},
      {"minus", "-1", std::nullopt},
      {"minus zero", "-0", std::nullopt},
      {"plus", "+1", std::nullopt},
      {"fraction", "1.0", std::nullopt},
      {"exponent", "1e0", std::nullopt},
      {"space in front", " 1", std::nullopt},
      {"space behind", "1 ", std::nullopt},
      {"hexadecimal", "0x1", std::nullopt},
      {"letters", "ff", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(parseUnsigned(c.digits), c.number);
  }
}

TEST(readString, givesAStringMember) {
  std::string text;
  std::string error;

  EXPECT_TRUE(readString(members(), "text", text, error));
  EXPECT_EQ(text, "value");
  EXPECT_EQ(error, "");
}

TEST(readString, namesTheKeyThatIsAbsentOrOfAnotherType) {
  for (const std::string key : {"absent", "number", "null"}) {
    std::string text;
    std::string error;
    EXPECT_FALSE(readString(members(), key, text, error));
    EXPECT_EQ(error, "invalid " + key);
  }
}

TEST(readUnsigned, givesANumberMember) {
  std::uint64_t number = 0;
  std::string error;

  EXPECT_TRUE(readUnsigned(members(), "number", number, error));
  EXPECT_EQ(number, 42u);
  EXPECT_EQ(error, "");
}

TEST(readUnsigned, namesTheKeyThatIsAbsentOrNoWholeNumber) {
  for (const std::string key : {"absent", "digits", "null", "fraction"}) {
    std::uint64_t number = 0;
    std::string error;
    EXPECT_FALSE(readUnsigned(members(), key, number, error));
    EXPECT_EQ(error, "invalid " + key);
  }
}

TEST(readOptionalString, clearsTheTextOfAnAbsentMember) {
  std::optional<std::string> text = "old";
  std::string error;

  EXPECT_TRUE(readOptionalString(members(), "absent", text, error));
  EXPECT_EQ(text, std::nullopt);
}

TEST(readOptionalString, givesAStringMemberAndRefusesAnyOther) {
  std::optional<std::string> text;
  std::string error;

  EXPECT_TRUE(readOptionalString(members(), "text", text, error));
  EXPECT_EQ(text, "value");
  EXPECT_FALSE(readOptionalString(members(), "null", text, error));
  EXPECT_EQ(error, "invalid null");
}

TEST(unsignedNumber, isReadBack) {
  for (const std::uint64_t number : {std::uint64_t{0}, std::uint64_t{1}, ~std::uint64_t{0}}) {
    EXPECT_EQ(parseUnsigned(*unsignedNumber(number).number()), number);
  }
}

TEST(newDocument, passesTheHeaderCheck) {
  EXPECT_EQ(outcomeOf<JsonValue>(checkDocumentHeader, toJsonText(JsonValue(newDocument()))), accepted);
}

}  // namespace
}  // namespace launcher_stub
