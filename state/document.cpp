#include "state/document.h"

#include <charconv>
#include <system_error>

#include "json/parser.h"
#include "state/messages.h"

namespace launcher_stub {
namespace {

constexpr std::string_view schemaVersionKey = "schemaVersion";
constexpr std::uint64_t schemaVersion = 1;

bool fail(std::string& error, std::string_view message) {
  error = message;
  return false;
}

bool failMember(std::string& error, std::string_view key) {
  error = invalidMember(key);
  return false;
}

}  // namespace

bool checkDocumentHeader(std::string_view document, JsonValue& value, std::string& error) {
  if (!parseJsonDocument(document.data(), document.size(), value, error)) return false;
  if (value.kind() != JsonKind::Object) return fail(error, messages::expectedObject);
  const JsonValue* member = findMember(*value.object(), schemaVersionKey);
  if (member == nullptr || member->kind() != JsonKind::Number) return fail(error, messages::missingSchemaVersion);
  const std::optional<std::uint64_t> version = parseUnsigned(*member->number());
  if (!version) return failMember(error, schemaVersionKey);
  if (*version != schemaVersion) return fail(error, messages::unsupportedMajor);
  return true;
}

std::optional<std::uint64_t> parseUnsigned(std::string_view digits) {
  std::uint64_t number = 0;
  const char* end = digits.data() + digits.size();
  const auto [stop, status] = std::from_chars(digits.data(), end, number);
  if (status != std::errc{} || stop != end) return std::nullopt;
  return number;
}

bool readString(const JsonObject& members, std::string_view key, std::string& text, std::string& error) {
  const JsonValue* member = asString(findMember(members, key));
  if (member == nullptr) return failMember(error, key);
  text = *member->string();
  return true;
}

bool readUnsigned(const JsonObject& members, std::string_view key, std::uint64_t& number, std::string& error) {
  const JsonValue* member = findMember(members, key);
  if (member == nullptr || member->kind() != JsonKind::Number) return failMember(error, key);
  const std::optional<std::uint64_t> converted = parseUnsigned(*member->number());
  if (!converted) return failMember(error, key);
  number = *converted;
  return true;
}

bool readOptionalString(const JsonObject& members, std::string_view key, std::optional<std::string>& text,
                        std::string& error) {
  text.reset();
  if (findMember(members, key) == nullptr) return true;
  return readString(members, key, text.emplace(), error);
}

std::string invalidMember(std::string_view key) { return std::string(messages::invalidPrefix).append(key); }

JsonValue unsignedNumber(std::uint64_t number) { return JsonValue(JsonNumber{std::to_string(number)}); }

JsonObject newDocument() {
  JsonObject members;
  members.try_emplace(std::string(schemaVersionKey), unsignedNumber(schemaVersion));
  return members;
}

}  // namespace launcher_stub
