#include "tests/json/differential/exceptions.h"

#include "json/messages.h"
#include "json/parser.h"

namespace launcher_stub::differential {
namespace {

bool escapesLowSurrogate(std::string_view document) {
  for (std::size_t at = document.find("\\u"); at != std::string_view::npos; at = document.find("\\u", at + 1)) {
    const std::string_view digits = document.substr(at + 2, 2);
    constexpr std::string_view second = "cdefCDEF";
    if (digits.size() == 2 && (digits[0] == 'd' || digits[0] == 'D') && second.find(digits[1]) != second.npos)
      return true;
  }
  return false;
}

bool beginsWithPartOfMark(std::string_view document) {
  return document.starts_with('\xEF') || document.starts_with('\xBB') || document.starts_with('\xBF');
}

// Whatever is wrong with a key is an "object syntax".
bool isFaultOfText(const std::string& error, std::string_view message) {
  return error == message || error == messages::objectSyntax;
}

// Each of these says that the exception is really what the document is about, not only that our message is of its kind.
std::string_view whyRefusedByUs(std::string_view document, const std::string& error, Other who,
                                const Judgement& other) {
  if (error == messages::recordTooLarge) return exceptions::size;
  if (error == messages::depthExceeded && other.deepest > kMaxJsonDepth) return exceptions::depth;
  if (error == messages::duplicateKey && other.repeatsKey) return exceptions::repeatedKey;
  if (isFaultOfText(error, messages::stringTooLong) && document.size() > kMaxStringBytes) return exceptions::longText;
  if (error == messages::invalidNumber && document.starts_with("\xEF\xBB\xBF")) return exceptions::byteOrderMark;
  if (who == Other::rapidJson && error == messages::invalidNumber && beginsWithPartOfMark(document)) {
    return exceptions::partOfMark;
  }
  if (error == messages::trailingData && document.find('\0') != std::string_view::npos) return exceptions::zeroByte;
  if (who == Other::rapidJson && isFaultOfText(error, messages::unpairedLowSurrogate) &&
      escapesLowSurrogate(document)) {
    return exceptions::loneLowSurrogate;
  }
  return exceptions::unexplained;
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
