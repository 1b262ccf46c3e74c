#include <algorithm>
#include <iterator>

#include "json/messages.h"
#include "json/parser.h"
#include "json/writer.h"
#include "tests/fuzz/fuzz_targets.h"
#include "tests/support/exact_bytes.h"

namespace launcher_stub::fuzz {
namespace {

constexpr std::string_view knownErrors[] = {
    messages::recordTooLarge,     messages::trailingData,        messages::depthExceeded,
    messages::missingValue,       messages::invalidNumber,       messages::arraySyntax,
    messages::objectSyntax,       messages::duplicateKey,        messages::controlInString,
    messages::unterminatedString, messages::badEscape,           messages::badUnicodeEscape,
    messages::badLowSurrogate,    messages::missingLowSurrogate, messages::unpairedLowSurrogate,
    messages::invalidUtf8,        messages::stringTooLong};

void requireLimits(const JsonValue& value, int depth) {
  require(depth <= kMaxJsonDepth, "no value lies too deep");
  if (value.string() != nullptr) require(value.string()->size() <= kMaxStringBytes, "no string is too long");
  if (const JsonArray* array = value.array()) {
    for (const JsonValue& element : *array) requireLimits(element, depth + 1);
  }
  if (const JsonObject* object = value.object()) {
    for (const JsonMember& member : *object) {
      require(member.key.size() <= kMaxStringBytes, "no key is too long");
      require(findMember(*object, member.key) == &member.value, "every member is found by its key");
      requireLimits(member.value, depth + 1);
    }
  }
}

bool isAscending(const JsonObject& object) {
  return std::adjacent_find(object.begin(), object.end(), [](const JsonMember& a, const JsonMember& b) {
           return !(std::string_view(a.key) < std::string_view(b.key));
         }) == object.end();
}

void requireReadBack(const JsonValue& value) {
  const std::string text = toJsonText(value);
  if (text.size() > kMaxRecordBytes) return;  // a control byte takes more bytes than its shortest spelling
  JsonValue again;
  std::string error;
  require(parseJsonDocument(text.data(), text.size(), again, error), "what was written is read");
  require(again == value, "what was written is read back to an equal value");
  require(toJsonText(again) == text, "an equal value is written as the same bytes");
}

void run(std::string_view bytes) {
  const ExactBytes document(bytes);
  JsonValue value;
  std::string error;
  if (!parseJsonDocument(document.view().data(), document.view().size(), value, error)) {
    require(std::ranges::find(knownErrors, error) != std::end(knownErrors), "an error is one of the known texts");
    return;
  }
  require(error.empty(), "success leaves the error alone");
  requireLimits(value, 0);
  if (value.object() != nullptr) require(isAscending(*value.object()), "members are in the order of their keys");
  const JsonValue copy = value;
  value = JsonValue();
  requireReadBack(copy);
}

const Registration registered({"json_parser", run});

}  // namespace
}  // namespace launcher_stub::fuzz
