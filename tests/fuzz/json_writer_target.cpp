#include "json/parser.h"
#include "json/writer.h"
#include "tests/fuzz/byte_source.h"
#include "tests/fuzz/fuzz_targets.h"

namespace launcher_stub::fuzz {
namespace {

// A byte below 0x80 stands for itself, every other for a character of two to four bytes.
void appendCharacter(unsigned char byte, std::string& text) {
  constexpr std::string_view longer[] = {"\xC2\x80",     "\xC3\xA4",         "\xDF\xBF",
                                         "\xE0\xA0\x80", "\xE2\x82\xAC",     "\xED\x9F\xBF",
                                         "\xEE\x80\x80", "\xF0\x9F\x9A\x80", "\xF4\x8F\xBF\xBF"};
  if (byte < 0x80) {
    text += static_cast<char>(byte);
  } else {
    text += longer[byte % std::size(longer)];
  }
}

std::string makeText(ByteSource& source) {
  std::string text;
  for (std::size_t left = source.below(32); left > 0; --left) appendCharacter(source.byte(), text);
  return text;
}

std::string makeNumber(ByteSource& source) {
  std::string text = source.below(2) == 0 ? "" : "-";
  text += std::to_string(source.byte());
  if (source.below(2) != 0) text += '.' + std::to_string(source.byte());
  if (source.below(2) != 0) text += "E-" + std::to_string(source.byte());
  return text;
}

JsonValue makeValue(ByteSource& source, int depth) {
  switch (source.below(depth < kMaxJsonDepth ? 6 : 4)) {
    case 0:
      return JsonValue();
    case 1:
      return JsonValue(source.below(2) != 0);
    case 2:
      return JsonValue(JsonNumber{makeNumber(source)});
    case 3:
      return JsonValue(makeText(source));
    case 4: {
      JsonArray elements;
      for (std::size_t left = source.below(6); left > 0; --left) elements.push_back(makeValue(source, depth + 1));
      return JsonValue(std::move(elements));
    }
    default: {
      JsonObject members;
      for (std::size_t left = source.below(6); left > 0; --left) {
        members.try_emplace(makeText(source), makeValue(source, depth + 1));
      }
      return JsonValue(std::move(members));
    }
  }
}

void run(std::string_view bytes) {
  ByteSource source(bytes);
  const JsonValue value = makeValue(source, 0);
  const std::string text = toJsonText(value);
  if (text.size() > kMaxRecordBytes) return;
  for (const char byte : text)
    require(static_cast<unsigned char>(byte) >= 0x20, "control bytes are written as escapes");

  JsonValue again;
  std::string error;
  require(parseJsonDocument(text.data(), text.size(), again, error), "what was written is read");
  require(again == value, "what was written is read back to an equal value");
  require(toJsonText(again) == text, "an equal value is written as the same bytes");
}

const Registration registered({"json_writer", run});

}  // namespace
}  // namespace launcher_stub::fuzz
