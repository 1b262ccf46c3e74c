#include "json/value.h"

#include <algorithm>

namespace launcher_stub {
namespace {

// The first member whose key is not smaller.
const JsonMember* placeOf(const JsonObject& members, std::string_view key) {
  return std::lower_bound(members.begin(), members.end(), key,
                          [](const JsonMember& member, std::string_view wanted) { return member.key < wanted; });
}

}  // namespace

template class JsonSequence<JsonValue>;
template class JsonSequence<JsonMember>;

JsonValue::JsonValue(const JsonValue& other) = default;
JsonValue& JsonValue::operator=(const JsonValue& other) = default;
JsonValue& JsonValue::operator=(JsonValue&& other) noexcept = default;
JsonValue::~JsonValue() = default;
bool JsonValue::operator==(const JsonValue& other) const = default;

JsonSequence<char> JsonText::copyOf(std::string_view text) {
  JsonSequence<char> bytes;
  bytes.append(text.data(), text.size());
  return bytes;
}

JsonObject::JsonObject(std::initializer_list<JsonMember> members) {
  for (const JsonMember& member : members) insert(member.key, member.value);
}

bool JsonObject::insert(std::string_view key, JsonValue value) {
  const JsonMember* place = placeOf(*this, key);
  if (place != end() && place->key == key) return false;
  members_.insert(static_cast<std::size_t>(place - begin()), JsonMember{JsonText(key), std::move(value)});
  return true;
}

const JsonMember* JsonObject::find(std::string_view key) const {
  const JsonMember* place = placeOf(*this, key);
  return place != end() && place->key == key ? place : end();
}

const JsonText* JsonValue::number() const {
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
  const JsonMember* found = members.find(key);
  return found == members.end() ? nullptr : &found->value;
}

}  // namespace launcher_stub
