#include "json/writer.h"

#include <string_view>

namespace launcher_stub {
namespace {

// Written with a backslash. Everything else, from 0x20 up, is written raw: 0x7F, '/' and all of UTF-8.
bool needsEscape(char byte) { return byte == '"' || byte == '\\' || static_cast<unsigned char>(byte) < 0x20; }

void appendEscaped(char byte, std::string& out) {
  constexpr std::string_view hexDigits = "0123456789abcdef";
  out += '\\';
  if (byte == '"' || byte == '\\') {
    out += byte;
    return;
  }
  const unsigned code = static_cast<unsigned char>(byte);
  out += "u00";
  out += hexDigits[code >> 4];
  out += hexDigits[code & 0xF];
}

void appendString(std::string_view bytes, std::string& out) { appendJsonString(bytes.data(), bytes.size(), out); }

void appendArray(const JsonArray& elements, std::string& out) {
  out += '[';
  bool first = true;
  for (const JsonValue& element : elements) {
    if (!first) out += ',';
    first = false;
    appendJson(element, out);
  }
  out += ']';
}

void appendObject(const JsonObject& members, std::string& out) {
  out += '{';
  bool first = true;
  for (const auto& [key, member] : members) {
    if (!first) out += ',';
    first = false;
    appendString(key, out);
    out += ':';
    appendJson(member, out);
  }
  out += '}';
}

}  // namespace

std::string toJsonText(const JsonValue& value) {
  std::string text;
  appendJson(value, text);
  return text;
}

void appendJson(const JsonValue& value, std::string& out) {
  switch (value.kind()) {
    case JsonKind::Null:
      out += "null";
      return;
    case JsonKind::Bool:
      out += *value.boolean() ? "true" : "false";
      return;
    case JsonKind::Number:
      out += *value.number();
      return;
    case JsonKind::String:
      appendString(*value.string(), out);
      return;
    case JsonKind::Array:
      appendArray(*value.array(), out);
      return;
    case JsonKind::Object:
      appendObject(*value.object(), out);
      return;
  }
}

void appendJsonString(const char* bytes, std::uint64_t length, std::string& out) {
  out += '"';
  std::uint64_t plainFrom = 0;  // bytes before an escape go out as one run
  for (std::uint64_t i = 0; i < length; ++i) {
    if (!needsEscape(bytes[i])) continue;
    out.append(bytes + plainFrom, i - plainFrom);
    appendEscaped(bytes[i], out);
    plainFrom = i + 1;
  }
  out.append(bytes + plainFrom, length - plainFrom);
  out += '"';
}

}  // namespace launcher_stub
