#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>

#include "json/messages.h"
#include "tests/json/differential/document_generator.h"
#include "tests/json/differential/exceptions.h"

namespace launcher_stub::differential {
namespace {

constexpr std::uint64_t seed = 20250311;
constexpr int documents = 1'000'000;

std::string printable(std::string_view document) {
  std::string result;
  for (const char byte : document) {
    const auto code = static_cast<unsigned char>(byte);
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, code >= 0x20 && code < 0x7F ? "%c" : "\\x%02X", code);
    result += escaped;
  }
  return result;
}

TEST(parseJsonDocument, agreesWithTwoOtherParsersButForTheNamedExceptions) {
  DocumentGenerator generator(seed);
  std::map<std::string_view, int> differences;
  int acceptedCount = 0;
  for (int number = 0; number < documents; ++number) {
    const std::string document = generator.next();
    const Judgement ours = judgeByOurs(document);
    const auto ofRapidJson = difference(document, ours, Other::rapidJson, judgeByRapidJson(document));
    const auto ofNlohmann = difference(document, ours, Other::nlohmann, judgeByNlohmann(document));
    acceptedCount += ours.accepted ? 1 : 0;
    for (const auto& found : {ofRapidJson, ofNlohmann}) {
      if (!found) continue;
      ++differences[*found];
      ASSERT_NE(*found, exceptions::unexplained)
          << "document " << number << " of seed " << seed << ": " << printable(document) << "\nwe say: " << ours.error;
    }
  }
  std::printf("%d documents, %d accepted\n", documents, acceptedCount);
  for (const auto& [name, count] : differences) std::printf("  %d: %s\n", count, std::string(name).c_str());

  // Neither the valid ones nor the others may be few, or the comparison would say little.
  EXPECT_GT(acceptedCount, documents / 4);
  EXPECT_LT(acceptedCount, documents * 3 / 4);
}

// The smallest document of each exception, and what else is worth one.
struct Case {
  const char* why;
  std::string document;
  std::optional<std::string_view> rapidJson, nlohmann;
};

std::string repeated(std::size_t count, std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < count; ++i) result += text;
  return result;
}

std::string longString(std::size_t length) { return repeated(1, "\"") + repeated(length, "a") + repeated(1, "\""); }

TEST(parseJsonDocument, differsFromOthersInTheNamedExceptions) {
  using namespace exceptions;
  const Case cases[] = {
      {"largest document", repeated(65535, " ") + "1", {}, {}},
      {"one byte more", repeated(65536, " ") + "1", size, size},
      {"deepest value", repeated(9, "[") + repeated(9, "]"), {}, {}},
      {"one level more", repeated(10, "[") + repeated(10, "]"), depth, depth},
      {"longest string", longString(4096), {}, {}},
      {"one byte more", longString(4097), longText, longText},
      {"one byte more in a key", "{" + longString(4097) + ":1}", longText, longText},
      {"repeated key", R"({"":0,"":0})", repeatedKey, repeatedKey},
      {"byte-order mark",
       "\xEF\xBB\xBF"
       "1",
       byteOrderMark, byteOrderMark},
      {"first part of a mark",
       "\xEF"
       "1",
       partOfMark,
       {}},
      {"last part of a mark",
       "\xBF"
       "1",
       partOfMark,
       {}},
      {"zero byte", std::string("1\0", 2), zeroByte, zeroByte},
      {"zero byte and more", std::string("1\0x", 3), zeroByte, zeroByte},
      {"zero byte and the rest of an array", std::string("[1]\0,2]", 8), zeroByte, zeroByte},
      {"zero byte within the value", std::string("[1\0]", 4), {}, {}},
      {"byte-order mark and a repeated key",
       "\xEF\xBB\xBF"
       R"({"":0,"":0})",
       byteOrderMark, byteOrderMark},
      {"surrogate pair", R"("\ud83d\ude80")", {}, {}},
      {"lone low surrogate", R"("\udc00")", loneLowSurrogate, {}},
      {"lone low surrogate in a key", R"({"\udc00":0})", loneLowSurrogate, {}},
      {"lone high surrogate", R"("\ud800")", {}, {}},
      {"largest exponent of a double", "1e308", {}, {}},
      {"huge number", "1e309", hugeNumber, hugeNumber},
      {"small number", "1e-999", {}, {}},
      {"minus zero", "-0", {}, minusZero},
      {"minus zero as a fraction", "-0.0", {}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.why << ": " << printable(c.document.substr(0, 40)));
    const Judgement ours = judgeByOurs(c.document);
    EXPECT_EQ(difference(c.document, ours, Other::rapidJson, judgeByRapidJson(c.document)), c.rapidJson);
    EXPECT_EQ(difference(c.document, ours, Other::nlohmann, judgeByNlohmann(c.document)), c.nlohmann);
  }
}

// What a document would have to be blamed for if we refused it for this, and the others accepted it.
TEST(parseJsonDocument, isNotExcusedByAnExceptionThatTheDocumentIsNot) {
  struct Refusal {
    const char* why;
    std::string document;
    std::string_view error;
  };
  const std::string manyBytes = "[" + repeated(1200, "\"four\",") + "{\"key\":0}]";
  const Refusal cases[] = {
      {"not longer than allowed", repeated(65535, " ") + "1", messages::recordTooLarge},
      {"as deep as allowed", repeated(9, "[") + repeated(9, "]"), messages::depthExceeded},
      {"no key twice", R"({"a":0,"b":0})", messages::duplicateKey},
      {"the longest string allowed", longString(4096), messages::stringTooLong},
      {"many short strings", manyBytes, messages::stringTooLong},
      {"many short strings and a key", manyBytes, messages::objectSyntax},
      {"a long string, but the fault is an object's", "[" + longString(4097) + ",{}]", messages::objectSyntax},
      {"a long key, but the fault is a string's", "{" + longString(4097) + ":\"\"}", messages::stringTooLong},
      {"zero byte only behind the fault", std::string("[1] \0", 5), messages::invalidNumber},
      {"nothing behind the value", "1", messages::trailingData},
      {"a surrogate pair", R"("\ud83d\ude80")", messages::unpairedLowSurrogate},
      {"a backslash and letters", R"("\\udc00")", messages::unpairedLowSurrogate},
      {"no byte-order mark", "1", messages::invalidNumber},
  };
  for (const Refusal& c : cases) {
    SCOPED_TRACE(testing::Message() << c.why << ": " << printable(c.document.substr(0, 40)));
    const Judgement ours = {.error = std::string(c.error)};
    EXPECT_EQ(difference(c.document, ours, Other::rapidJson, judgeByRapidJson(c.document)), exceptions::unexplained);
    EXPECT_EQ(difference(c.document, ours, Other::nlohmann, judgeByNlohmann(c.document)), exceptions::unexplained);
  }
}

// As if the other parser had read no more than the first value, though the zero byte is further behind.
TEST(parseJsonDocument, isNotExcusedByAZeroByteAtAnotherPlace) {
  const Judgement other = judgeByNlohmann("[1]");
  for (const std::string front : {"[1] 2", "[1,2]", "[1] [1]"}) {
    SCOPED_TRACE(front);
    const std::string document = front + std::string("\0", 1);
    const Judgement ours = judgeByOurs(document);
    ASSERT_EQ(ours.error, messages::trailingData);
    EXPECT_EQ(difference(document, ours, Other::nlohmann, other), exceptions::unexplained);
  }
}

}  // namespace
}  // namespace launcher_stub::differential
