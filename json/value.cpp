#include "json/value.h"

namespace launcher_stub {

const std::string* JsonValue::number() const {
  const JsonNumber* number = std::get_if<JsonNumber>(&payload_);
  return number == nullptr ? nullptr : &number->text;
}

const JsonValue* asObject(const JsonValue* value) {
  return value != nullptr && value->kind() == JsonKind::Object ? value : nullptr;
}

const JsonValue* asString(const JsonValue* value) {
  return value != nullptr && value->kind() == JsonKind::String ? value : nullptr;
}

const JsonValue* findMember(const JsonObject& members, std::string_view key) {
  const auto found = members.find(key);
  return found == members.end() ? nullptr : &found->second;
}

}  // namespace launcher_stub
