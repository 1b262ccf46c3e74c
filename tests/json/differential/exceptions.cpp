#include "tests/json/differential/exceptions.h"

#include "json/messages.h"
#include "json/parser.h"

namespace launcher_stub::differential {
namespace {

// What a reader that looks for a byte-order mark, byte after byte, leaves of the document.
std::string_view withoutPartsOfMark(std::string_view document) {
  for (const char byte : {'\xEF', '\xBB', '\xBF'}) {
    if (document.starts_with(byte)) document.remove_prefix(1);
  }
  return document;
}

// The other parser has read this part and no more.
bool isExplainedBy(std::string_view part, Other who, const Judgement& other) {
  const std::optional<std::string_view> found = difference(part, judgeByOurs(part), who, other);
  return !found || *found != exceptions::unexplained;
}

// The zero byte is where we have found something behind the value.
bool endsForOthersAtZero(std::string_view document, Other who, const Judgement& other) {
  const std::size_t zero = document.find('\0');
  return zero != document.npos && isExplainedBy(document.substr(0, zero), who, other);
}

// Each of these says that the exception is really what the document is about, as the other parser has read it, not only
// that our message is of its kind. Whatever is wrong with a key is an "object syntax".
std::string_view whyRefusedByUs(std::string_view document, const std::string& error, Other who,
                                const Judgement& other) {
  const bool ofString = error != messages::objectSyntax;
  const Texts& texts = ofString ? other.strings : other.keys;
  if (error == messages::recordTooLarge && document.size() > kMaxRecordBytes) return exceptions::size;
  if (error == messages::depthExceeded && other.deepest > kMaxJsonDepth) return exceptions::depth;
  if (error == messages::duplicateKey && other.repeatsKey) return exceptions::repeatedKey;
  if ((error == messages::stringTooLong || !ofString) && texts.longest > kMaxStringBytes) return exceptions::longText;
  if ((error == messages::unpairedLowSurrogate || !ofString) && who == Other::rapidJson && texts.holdSurrogate) {
    return exceptions::loneLowSurrogate;
  }
  if (error == messages::trailingData && endsForOthersAtZero(document, who, other)) return exceptions::zeroByte;

  const std::string_view unmarked = withoutPartsOfMark(document);
  const bool readWithoutMark = unmarked.size() < document.size() && isExplainedBy(unmarked, who, other);
  if (error != messages::invalidNumber || !readWithoutMark) return exceptions::unexplained;
  if (unmarked.size() + 3 == document.size()) return exceptions::byteOrderMark;
  return who == Other::rapidJson ? exceptions::partOfMark : exceptions::unexplained;
}

JsonValue withoutMinusZero(const JsonValue& value) {
  if (value.number() != nullptr && *value.number() == "-0") return JsonValue(JsonNumber{"0"});
  if (const JsonArray* array = value.array()) {
    JsonArray elements;
    for (const JsonValue& element : *array) elements.push_back(withoutMinusZero(element));
    return JsonValue(std::move(elements));
  }
  if (const JsonObject* object = value.object()) {
    JsonObject members;
    for (const JsonMember& member : *object) members.try_emplace(member.key, withoutMinusZero(member.value));
    return JsonValue(std::move(members));
  }
  return value;
}

}  // namespace

std::optional<std::string_view> difference(std::string_view document, const Judgement& ours, Other who,
                                           const Judgement& other) {
  if (!ours.accepted && !other.accepted) return std::nullopt;
  if (!ours.accepted) return whyRefusedByUs(document, ours.error, who, other);
  if (!other.accepted) return other.holdsHugeNumber ? exceptions::hugeNumber : exceptions::unexplained;
  if (ours.value == other.value) return std::nullopt;
  if (who == Other::nlohmann && withoutMinusZero(ours.value) == other.value) return exceptions::minusZero;
  return exceptions::unexplained;
}

}  // namespace launcher_stub::differential
