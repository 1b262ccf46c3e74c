#include <rapidjson/encodedstream.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include "tests/json/differential/judgement.h"

namespace launcher_stub::differential {
namespace {

// The names are RapidJSON's.
class Events {
 public:
  explicit Events(Judgement& judgement) : builder_(judgement) {}

  bool Null() { return builder_.add(JsonValue()); }
  bool Bool(bool value) { return builder_.add(JsonValue(value)); }
  bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
    return builder_.add(JsonValue(JsonNumber{std::string_view(text, length)}));
  }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    return builder_.add(JsonValue(std::string(text, length)));
  }
  bool StartObject() { return builder_.begin(); }
  bool Key(const char* text, rapidjson::SizeType length, bool) { return builder_.key({text, length}); }
  bool EndObject(rapidjson::SizeType) { return builder_.endObject(); }
  bool StartArray() { return builder_.begin(); }
  bool EndArray(rapidjson::SizeType) { return builder_.endArray(); }

  // Never called: numbers come as text.
  bool Int(int) { return false; }
  bool Uint(unsigned) { return false; }
  bool Int64(std::int64_t) { return false; }
  bool Uint64(std::uint64_t) { return false; }
  bool Double(double) { return false; }

 private:
  ValueBuilder builder_;
};

}  // namespace

Judgement judgeByRapidJson(std::string_view document) {
  constexpr unsigned flags = rapidjson::kParseValidateEncodingFlag | rapidjson::kParseNumbersAsStringsFlag;
  Judgement judgement;
  Events events(judgement);
  rapidjson::Reader reader;
  rapidjson::MemoryStream memory(document.data(), document.size());
  rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> stream(memory);
  const rapidjson::ParseResult result = reader.Parse<flags>(stream, events);
  judgement.accepted = !result.IsError();
  judgement.holdsHugeNumber = result.Code() == rapidjson::kParseErrorNumberTooBig;
  return judgement;
}

}  // namespace launcher_stub::differential
