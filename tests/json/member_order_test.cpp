#include "json/member_order.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "json/messages.h"
#include "json/writer.h"
#include "tests/json/parsing.h"

namespace launcher_stub {
namespace {

// Keys that differ late, begin with one another, or hold zero bytes.
std::string randomKey(std::mt19937& random) {
  const std::string_view beginnings[] = {"", "", "prefix-", "prefix-p", "prefix-prefix-prefix-"};
  const std::string_view letters("\0ab\xC3\xBF", 5);
  std::string key(beginnings[random() % 5]);
  for (auto length = random() % 6; length > 0; --length) {
    const std::size_t letter = random() % 4;
    key += letters.substr(letter, letter == 3 ? 2 : 1);
  }
  return key;
}

std::string documentOf(const std::vector<std::string>& keys) {
  std::string document = "{";
  for (const std::string& key : keys) {
    if (document.size() > 1) document += ',';
    appendJsonString(key.data(), key.size(), document);
    document += ":0";
  }
  return document + '}';
}

std::vector<std::string> keysOf(const JsonObject& object) {
  std::vector<std::string> keys;
  for (const JsonMember& member : object) keys.emplace_back(member.key);
  return keys;
}

TEST(memberOrder, isTheOrderOfTheKeysHoweverManyThereAre) {
  constexpr unsigned seed = 20250314;
  std::mt19937 random(seed);
  for (int round = 0; round < 600; ++round) {
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", round " << round);
    std::set<std::string> sorted;
    std::vector<std::string> keys;
    for (auto left = random() % 300; left > 0; --left) {
      const std::string key = randomKey(random);
      if (sorted.insert(key).second) keys.push_back(key);
    }

    const Parsed parsed = parse(documentOf(keys));

    ASSERT_EQ(parsed.error, "accepted");
    ASSERT_EQ(keysOf(*parsed.value.object()), std::vector<std::string>(sorted.begin(), sorted.end()));
    if (keys.empty()) continue;
    keys.push_back(keys[random() % keys.size()]);
    ASSERT_EQ(parse(documentOf(keys)).error, messages::duplicateKey);
  }
}

// Around the lengths at which a key's bytes are looked at in parts, and in numbers that are sorted in either way.
TEST(memberOrder, findsAKeyThatIsThereManyTimesWhateverItsLength) {
  for (const std::size_t length : std::vector<std::size_t>{0, 1, 6, 7, 8, 13, 14, 15, 21, 22}) {
    for (const std::size_t count : std::vector<std::size_t>{2, 39, 40, 41, 100}) {
      SCOPED_TRACE(testing::Message() << "length " << length << ", " << count << " times");
      std::vector<std::string> keys(count, std::string(length, 'k'));

      EXPECT_EQ(parse(documentOf(keys)).error, messages::duplicateKey);
      keys.push_back("a smaller one");
      EXPECT_EQ(parse(documentOf(keys)).error, messages::duplicateKey);
    }
  }
}

TEST(memberOrder, findsTwoEqualKeysAmongManyThatBeginAlike) {
  for (const std::size_t common : std::vector<std::size_t>{0, 6, 7, 8, 14}) {
    SCOPED_TRACE(common);
    const std::string start(common, 'k');
    std::vector<std::string> keys;
    for (int number = 199; number >= 100; --number) keys.push_back(start + std::to_string(number));

    EXPECT_EQ(parse(documentOf(keys)).error, "accepted");
    keys.push_back(start + "150");
    EXPECT_EQ(parse(documentOf(keys)).error, messages::duplicateKey);
  }
}

TEST(jsonObject, isSortedWhenItIsBuiltMemberByMember) {
  JsonObject object;

  EXPECT_TRUE(object.try_emplace("b", true));
  EXPECT_TRUE(object.try_emplace("a", true));
  EXPECT_TRUE(object.try_emplace("c", true));
  EXPECT_FALSE(object.try_emplace("b", false));

  EXPECT_EQ(keysOf(object), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_TRUE(*findMember(object, "b")->boolean());
}

TEST(jsonValue, outlivesTheDocumentThatItIsACopyOfAPartOf) {
  JsonValue part;
  JsonArray elements;
  {
    const Parsed parsed = parse(R"({"list":["kept",[1]]})");
    part = *findMember(*parsed.value.object(), "list");
    elements = *part.array();
  }

  EXPECT_EQ(toJsonText(part), R"(["kept",[1]])");
  elements.emplace_back(true);
  EXPECT_EQ(toJsonText(JsonValue(elements)), R"(["kept",[1],true])");
  EXPECT_EQ(toJsonText(part), R"(["kept",[1]])");
}

TEST(jsonValue, ownsTheTextOfADocumentThatIsNothingElse) {
  JsonValue text;
  JsonValue number;
  {
    text = parse("\"kept\"").value;
    number = parse("1.50").value;
  }

  EXPECT_EQ(*text.string(), "kept");
  EXPECT_EQ(*number.number(), "1.50");
}

}  // namespace
}  // namespace launcher_stub
