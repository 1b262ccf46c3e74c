// The in-memory form of a state document.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace launcher_stub {

// The order is fixed: it is the order of the payloads below.
enum class JsonKind : std::uint8_t { Null, Bool, Number, String, Array, Object };

class JsonValue;

using JsonArray = std::vector<JsonValue>;

// Sorted by key, as unsigned bytes from the first on; a prefix comes before what it begins. (`std::string` compares
// through char_traits<char>, which orders bytes as unsigned.)
using JsonObject = std::map<std::string, JsonValue, std::less<>>;

// A number is kept as the text that stood in the document and is never converted here.
struct JsonNumber {
  std::string text;
  bool operator==(const JsonNumber&) const = default;
};

// A tagged union that owns its whole tree. Copying copies the tree.
class JsonValue {
 public:
  JsonValue() = default;  // Null
  explicit JsonValue(bool value) : payload_(value) {}
  explicit JsonValue(JsonNumber value) : payload_(std::move(value)) {}
  explicit JsonValue(std::string value) : payload_(std::move(value)) {}
  explicit JsonValue(JsonArray value) : payload_(std::move(value)) {}
  explicit JsonValue(JsonObject value) : payload_(std::move(value)) {}
  explicit JsonValue(const char*) = delete;  // would silently become a bool

  JsonKind kind() const { return static_cast<JsonKind>(payload_.index()); }

  // The payload, or null where the value is of another kind. The pointer is good as long as the value is unchanged.
  const bool* boolean() const { return std::get_if<bool>(&payload_); }
  const std::string* number() const;                                                 // the source text
  const std::string* string() const { return std::get_if<std::string>(&payload_); }  // UTF-8; may hold zero bytes
  const JsonArray* array() const { return std::get_if<JsonArray>(&payload_); }
  const JsonObject* object() const { return std::get_if<JsonObject>(&payload_); }

  bool operator==(const JsonValue&) const = default;

 private:
  std::variant<std::monostate, bool, JsonNumber, std::string, JsonArray, JsonObject> payload_;
};

// The same pointer if it leads to an Object (a String), else null. Null gives null.
const JsonValue* asObject(const JsonValue* value);
const JsonValue* asString(const JsonValue* value);

// The member's value, or null where the object has no such key. Exact bytes: no case folding, no paths. The pointer
// is good as long as the object is unchanged.
const JsonValue* findMember(const JsonObject& members, std::string_view key);

}  // namespace launcher_stub
