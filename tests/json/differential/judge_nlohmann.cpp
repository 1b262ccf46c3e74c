#include <cmath>
#include <nlohmann/json.hpp>

#include "tests/json/differential/judgement.h"

namespace launcher_stub::differential {
namespace {

// The names are the library's.
class Events : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit Events(Judgement& judgement) : judgement_(judgement), builder_(judgement) {}

  bool null() override { return builder_.add(JsonValue()); }
  bool boolean(bool value) override { return builder_.add(JsonValue(value)); }
  bool number_integer(number_integer_t value) override { return addNumber(std::to_string(value)); }
  bool number_unsigned(number_unsigned_t value) override { return addNumber(std::to_string(value)); }
  bool number_float(number_float_t, const string_t& text) override { return addNumber(text); }
  bool string(string_t& text) override { return builder_.add(JsonValue(text)); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return builder_.begin(); }
  bool key(string_t& text) override { return builder_.key(text); }
  bool end_object() override { return builder_.endObject(); }
  bool start_array(std::size_t) override { return builder_.begin(); }
  bool end_array() override { return builder_.endArray(); }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& exception) override {
    constexpr int outOfRange = 406;
    judgement_.holdsHugeNumber = exception.id == outOfRange;
    return false;
  }

 private:
  bool addNumber(const std::string& text) { return builder_.add(JsonValue(JsonNumber{text})); }

  Judgement& judgement_;
  ValueBuilder builder_;
};

}  // namespace

Judgement judgeByNlohmann(std::string_view document) {
  Judgement judgement;
  Events events(judgement);
  judgement.accepted = nlohmann::json::sax_parse(document.begin(), document.end(), &events);
  return judgement;
}

}  // namespace launcher_stub::differential
