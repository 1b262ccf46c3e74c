// The in-memory form of a state document.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "json/sequence.h"

namespace launcher_stub {

// The order is fixed: it is the order of the payloads below.
enum class JsonKind : std::uint8_t { Null, Bool, Number, String, Array, Object };

class JsonValue;
struct JsonMember;

// The bytes of a string, a key or a number; may hold zero bytes.
class JsonText : public JsonSequence<char> {
 public:
  JsonText() = default;
  explicit JsonText(JsonSequence<char> bytes) noexcept : JsonSequence(std::move(bytes)) {}
  template <typename Text>
  requires std::convertible_to<const Text&, std::string_view> JsonText(const Text& text) : JsonSequence(copyOf(text)) {}

  operator std::string_view() const { return {begin(), size()}; }
  operator std::string() const { return {begin(), size()}; }

 private:
  static JsonSequence<char> copyOf(std::string_view text);
};

template <std::convertible_to<std::string_view> Text>
bool operator==(const JsonText& a, const Text& b) {
  return std::string_view(a) == std::string_view(b);
}

using JsonArray = JsonSequence<JsonValue>;

// Sorted by key, as unsigned bytes from the first on; a prefix comes before what it begins. (`std::string_view`
// compares through char_traits<char>, which orders bytes as unsigned.)
class JsonObject {
 public:
  JsonObject() = default;
  // Later members of the same key are left out.
  JsonObject(std::initializer_list<JsonMember> members);
  // `members` are in the order above and have different keys.
  explicit JsonObject(JsonSequence<JsonMember> members) noexcept : members_(std::move(members)) {}

  // False: there is such a key already, and its value stays.
  template <typename... Arguments>
  bool try_emplace(std::string_view key, Arguments&&... arguments);

  const JsonMember* begin() const { return members_.begin(); }
  const JsonMember* end() const;
  std::size_t size() const { return members_.size(); }

  // `end()` where the key is missing.
  const JsonMember* find(std::string_view key) const;

  bool operator==(const JsonObject&) const = default;

 private:
  bool insert(std::string_view key, JsonValue value);

  JsonSequence<JsonMember> members_;
};

// A number is kept as the text that stood in the document and is never converted here.
struct JsonNumber {
  JsonText text;
  bool operator==(const JsonNumber&) const = default;
};

// A tagged union that owns its whole tree. Copying copies the tree.
class JsonValue {
 public:
  JsonValue() = default;  // Null
  explicit JsonValue(bool value) : payload_(value) {}
  explicit JsonValue(JsonNumber value) : payload_(std::move(value)) {}
  explicit JsonValue(JsonText value) : payload_(std::move(value)) {}
  explicit JsonValue(JsonArray value) : payload_(std::move(value)) {}
  explicit JsonValue(JsonObject value) : payload_(std::move(value)) {}
  explicit JsonValue(const char*) = delete;  // would silently become a bool

  JsonValue(const JsonValue& other);
  JsonValue(JsonValue&& other) noexcept = default;
  JsonValue& operator=(const JsonValue& other);
  JsonValue& operator=(JsonValue&& other) noexcept;
  ~JsonValue();

  JsonKind kind() const { return static_cast<JsonKind>(payload_.index()); }

  // The payload, or null where the value is of another kind. The pointer is good as long as the value is unchanged.
  const bool* boolean() const { return std::get_if<bool>(&payload_); }
  const JsonText* number() const;                                              // the source text
  const JsonText* string() const { return std::get_if<JsonText>(&payload_); }  // UTF-8
  const JsonArray* array() const { return std::get_if<JsonArray>(&payload_); }
  const JsonObject* object() const { return std::get_if<JsonObject>(&payload_); }

  bool operator==(const JsonValue& other) const;

 private:
  std::variant<std::monostate, bool, JsonNumber, JsonText, JsonArray, JsonObject> payload_;
};

struct JsonMember {
  JsonText key;
  JsonValue value;
  bool operator==(const JsonMember&) const = default;
};

// All of these in one place: in every reader they would cost more than the readers.
extern template class JsonSequence<JsonValue>;
extern template class JsonSequence<JsonMember>;

inline const JsonMember* JsonObject::end() const { return members_.end(); }

template <typename... Arguments>
bool JsonObject::try_emplace(std::string_view key, Arguments&&... arguments) {
  return insert(key, JsonValue(std::forward<Arguments>(arguments)...));
}

// The same pointer if it leads to an Object (a String), else null. Null gives null.
const JsonValue* asObject(const JsonValue* value);
const JsonValue* asString(const JsonValue* value);

// The member's value, or null where the object has no such key. Exact bytes: no case folding, no paths. The pointer
// is good as long as the object is unchanged.
const JsonValue* findMember(const JsonObject& members, std::string_view key);

}  // namespace launcher_stub
