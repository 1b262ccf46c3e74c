#include "json/value.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/json/parsing.h"

namespace launcher_stub {
namespace {

std::vector<std::string> keysInOrder(const JsonObject& members) {
  std::vector<std::string> keys;
  for (const auto& member : members) keys.push_back(member.key);
  return keys;
}

JsonValue number(std::string text) { return JsonValue(JsonNumber{std::move(text)}); }

TEST(jsonKind, hasSixKindsInFixedOrder) {
  struct Case {
    const char* why;
    JsonValue value;
    JsonKind kind;
    int tag;
  };
  const Case cases[] = {
      {"freshly constructed", JsonValue(), JsonKind::Null, 0},
      {"bool", JsonValue(false), JsonKind::Bool, 1},
      {"number", number("1"), JsonKind::Number, 2},
      {"string", JsonValue(std::string("1")), JsonKind::String, 3},
      {"array", JsonValue(JsonArray{}), JsonKind::Array, 4},
      {"object", JsonValue(JsonObject{}), JsonKind::Object, 5},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(c.value.kind(), c.kind);
    EXPECT_EQ(static_cast<int>(c.value.kind()), c.tag);
  }
}

TEST(jsonValue, givesItsPayloadOnlyUnderItsOwnKind) {
  const JsonValue values[] = {JsonValue(),
                              JsonValue(true),
                              number("1"),
                              JsonValue(std::string("1")),
                              JsonValue(JsonArray{JsonValue()}),
                              JsonValue(JsonObject{{"a", JsonValue()}})};
  for (const JsonValue& value : values) {
    SCOPED_TRACE(static_cast<int>(value.kind()));
    EXPECT_EQ(value.boolean() != nullptr, value.kind() == JsonKind::Bool);
    EXPECT_EQ(value.number() != nullptr, value.kind() == JsonKind::Number);
    EXPECT_EQ(value.string() != nullptr, value.kind() == JsonKind::String);
    EXPECT_EQ(value.array() != nullptr, value.kind() == JsonKind::Array);
    EXPECT_EQ(value.object() != nullptr, value.kind() == JsonKind::Object);
  }
}

TEST(jsonValue, holdsTheTextOfANumberUnchanged) {
  for (const char* text : {"1.50", "-0", "1e2", "1E+02", "00100"}) {
    const JsonValue value = number(text);

    ASSERT_NE(value.number(), nullptr) << text;
    EXPECT_EQ(*value.number(), text);
  }
}

TEST(jsonValue, tellsNumbersApartByTheirText) {
  EXPECT_EQ(number("100"), number("100"));
  EXPECT_NE(number("1e2"), number("100"));
  EXPECT_NE(number("0"), number("-0"));
}

TEST(jsonValue, tellsANumberFromAStringOfTheSameText) { EXPECT_NE(number("1"), JsonValue(std::string("1"))); }

TEST(jsonValue, tellsObjectsApartByKeysValuesAndNumberOfMembers) {
  const JsonObject object{{"a", JsonValue(true)}, {"b", JsonValue()}};

  EXPECT_EQ(object, (JsonObject{{"b", JsonValue()}, {"a", JsonValue(true)}})) << "however they came in";
  EXPECT_NE(object, (JsonObject{{"a", JsonValue(true)}, {"c", JsonValue()}}));
  EXPECT_NE(object, (JsonObject{{"a", JsonValue(false)}, {"b", JsonValue()}}));
  EXPECT_NE(object, (JsonObject{{"a", JsonValue(true)}}));
  EXPECT_NE(object, JsonObject());
}

TEST(jsonArray, assignedToItselfStaysAsItIs) {
  JsonArray array{JsonValue(true), number("1")};
  const JsonArray& same = array;

  array = same;

  EXPECT_EQ(array, (JsonArray{JsonValue(true), number("1")}));
}

TEST(jsonText, refusesMoreBytesThanItCanCount) {
  const char byte = 'x';
  const std::string_view tooLong(&byte, std::size_t{1} << 32);  // nothing behind the first byte is ever read

  EXPECT_THROW(JsonText{tooLong}, std::bad_alloc);
}

TEST(jsonValue, copiesItsWholeTree) {
  const JsonValue original(JsonObject{{"list", JsonValue(JsonArray{JsonValue(std::string("kept"))})}});
  JsonValue copy = original;
  const JsonArray* copied = findMember(*copy.object(), "list")->array();
  const JsonArray* source = findMember(*original.object(), "list")->array();

  EXPECT_EQ(copy, original);
  EXPECT_NE(copied, source);
  EXPECT_NE(copied->front().string(), source->front().string());
  copy = JsonValue();
  EXPECT_EQ(*source->front().string(), "kept");
}

TEST(jsonValue, movesItsTreeWithoutCopyingIt) {
  JsonValue original(JsonArray{JsonValue(std::string("moved"))});
  const JsonValue* element = &original.array()->front();

  const JsonValue target = std::move(original);

  EXPECT_EQ(&target.array()->front(), element);
}

TEST(jsonObject, ordersKeysAsUnsignedBytesWithPrefixesFirst) {
  struct Case {
    const char* why;
    std::string smaller;
    std::string greater;
  };
  const Case cases[] = {
      {"prefix first", "a", "a0"},
      {"upper case before lower case", "B", "a"},
      {"empty before all", "", std::string(1, '\0')},
      {"a zero byte counts as a byte", "a", std::string("a\0", 2)},
      {"0xC3 after the last ASCII byte", "\x7F", "\xC3\xA4"},
      {"0xC3 after letters", "z", "\xC3\xA4"},
      {"the first different byte decides, not the length", "aab", "ab"},
      {"greatest lead byte last", "\xC3\xA4", "\xF4\x8F\xBF\xBF"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const JsonObject members{{c.greater, JsonValue()}, {c.smaller, JsonValue()}};
    EXPECT_EQ(keysInOrder(members), (std::vector<std::string>{c.smaller, c.greater}));
  }
}

TEST(jsonObject, visitsMembersByKeyAndNotByPlaceInTheDocument) {
  const Parsed parsed = parse(R"({"b":1,"a0":2,"B":3,"a":4})");

  ASSERT_EQ(parsed.error, "accepted");
  EXPECT_EQ(keysInOrder(*parsed.value.object()), (std::vector<std::string>{"B", "a", "a0", "b"}));
}

TEST(jsonArray, keepsTheOrderOfTheDocument) {
  const Parsed parsed = parse(R"(["b","a","c"])");

  ASSERT_EQ(parsed.error, "accepted");
  EXPECT_EQ(parsed.value, JsonValue(JsonArray{JsonValue(std::string("b")), JsonValue(std::string("a")),
                                              JsonValue(std::string("c"))}));
}

TEST(findMember, givesTheValueUnderExactlyThatKey) {
  const JsonObject members{{"slot", number("1")}, {"slot.name", number("2")}, {"", number("3")}};

  EXPECT_EQ(*findMember(members, "slot"), number("1"));
  EXPECT_EQ(*findMember(members, "slot.name"), number("2"));
  EXPECT_EQ(*findMember(members, ""), number("3"));
  EXPECT_EQ(findMember(members, "slot"), &members.find("slot")->value);
}

TEST(findMember, givesNoneForAnyOtherKey) {
  const JsonObject members{{"slot", JsonValue(JsonObject{{"name", JsonValue()}})}};

  EXPECT_EQ(findMember(members, "Slot"), nullptr);
  EXPECT_EQ(findMember(members, "slo"), nullptr);
  EXPECT_EQ(findMember(members, "slots"), nullptr);
  EXPECT_EQ(findMember(members, "slot.name"), nullptr);
  EXPECT_EQ(findMember(members, std::string_view("slot\0", 5)), nullptr);
  EXPECT_EQ(findMember(JsonObject{}, "slot"), nullptr);
}

TEST(findMember, takesAKeyThatEndsWithoutATerminator) {
  const JsonObject members{{"slot", number("1")}};

  EXPECT_NE(findMember(members, std::string_view("slots").substr(0, 4)), nullptr);
}

TEST(asObject, passesObjectsAndNothingElse) {
  const JsonValue object(JsonObject{});
  const JsonValue array(JsonArray{});

  EXPECT_EQ(asObject(&object), &object);
  EXPECT_EQ(asObject(&array), nullptr);
  EXPECT_EQ(asObject(nullptr), nullptr);
}

TEST(asString, passesStringsAndNothingElse) {
  const JsonValue string(std::string("1"));
  const JsonValue digits = number("1");

  EXPECT_EQ(asString(&string), &string);
  EXPECT_EQ(asString(&digits), nullptr);
  EXPECT_EQ(asString(nullptr), nullptr);
}

}  // namespace
}  // namespace launcher_stub
