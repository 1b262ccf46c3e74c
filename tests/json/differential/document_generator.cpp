#include "tests/json/differential/document_generator.h"

namespace launcher_stub::differential {
namespace {

using Pieces = const std::string_view[];

constexpr Pieces numberPieces = {"0", "1", "9", "12", "00", "-", "+", ".", "e", "E", "0.5", "1e5", "e+", "E-3", "-0"};
constexpr Pieces wholeNumbers = {"0",
                                 "-0",
                                 "1",
                                 "42",
                                 "1.50",
                                 "-0.0",
                                 "1e2",
                                 "1E+02",
                                 "1e-7",
                                 "123456789",
                                 "0.00000001",
                                 "18446744073709551615",
                                 "1e308",
                                 "-9223372036854775808",
                                 "18446744073709551616"};
constexpr Pieces literalPieces = {"true", "false", "null", "tru", "nul", "True", "NaN", "x", "truex", "Infinity"};
constexpr Pieces tokens = {"{", "}", "[", "]", ",", ":", "\"a\"", "\"b\"", "\"\"", "1", "true", "null", " ", "\"a\":1"};
constexpr Pieces spaces = {" ", "\t", "\n", "\r", "\r\n  ", "\f", "\v", "\xC2\xA0", "/**/", "//"};
constexpr Pieces textPieces = {"a",
                               "b",
                               "seed",
                               "A0",
                               " ",
                               "/",
                               "\x7F",
                               "\xC3\xA4",
                               "\xE2\x82\xAC",
                               "\xF0\x9F\x9A\x80",
                               "\\n",
                               "\\\"",
                               "\\\\",
                               "\\/",
                               "\\b",
                               "\\f",
                               "\\r",
                               "\\t",
                               "\\u0041",
                               "\\u00e4",
                               "\\u20AC",
                               "\\ud83d\\ude80",
                               "\\u0000",
                               "\\uFFFF"};
constexpr Pieces escapePieces = {
    "\\",      "\\u",     "\\u1",    "\\u12g4",        "\\x",     "\\'",     "\\ud800", "\\udbff", "\\udc00",
    "\\udfff", "\\ud7ff", "\\ue000", "\\uD83D\\uDE80", "\\u0022", "\\U0041", "\\0",     "a",       "\\\\"};

// The bytes at which a rule of the encoding begins or ends.
constexpr unsigned char edgesOfUtf8[] = {0x00, 0x1F, 0x20, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2,
                                         0xDF, 0xE0, 0xE1, 0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xFF};

}  // namespace

std::string DocumentGenerator::next() {
  switch (below(16)) {
    case 0:
      return several(numberPieces, 5);
    case 1:
      return '"' + several(escapePieces, 4) + '"';
    case 2:
      return '"' + bytesOfUtf8() + '"';
    case 3:
      return several(tokens, 9);
    case 4:
      return space() + std::string(any(literalPieces)) + std::string(any(spaces));
    case 5:
    case 6:
    case 7:
    case 8:
      return space() + value(0) + space();
    default:
      return mutated(space() + value(0) + space());
  }
}

std::string DocumentGenerator::several(std::span<const std::string_view> pieces, std::size_t most) {
  std::string result;
  for (std::size_t left = 1 + below(most); left > 0; --left) result += any(pieces);
  return result;
}

std::string DocumentGenerator::value(int depth) {
  const std::size_t kinds = depth < 10 ? 9 : 6;  // a little deeper than we accept
  switch (below(kinds)) {
    case 0:
    case 1:
      return number();
    case 2:
    case 3:
      return '"' + text() + '"';
    case 4:
    case 5:
      return std::string(any(std::span(literalPieces).first(3)));
    case 6:
    case 7:
      return object(depth);
    default:
      return array(depth);
  }
}

std::string DocumentGenerator::array(int depth) {
  std::string result = "[" + space();
  for (std::size_t left = below(5); left > 0; --left) {
    result += value(depth + 1) + space();
    if (left > 1) result += ',' + space();
  }
  return result + ']';
}

std::string DocumentGenerator::object(int depth) {
  std::string result = "{" + space();
  for (std::size_t left = below(oneIn(50) ? 300 : 5); left > 0; --left) {
    result += '"' + text() + '"' + space() + ':' + space() + value(left > 20 ? 10 : depth + 1) + space();
    if (left > 1) result += ',' + space();
  }
  return result + '}';
}

std::string DocumentGenerator::text() {
  std::string result;
  for (std::size_t left = below(8); left > 0; --left) {
    result += oneIn(3) ? std::string(any(textPieces)) : std::string(1, static_cast<char>('a' + below(26)));
  }
  return result;
}

std::string DocumentGenerator::number() {
  return oneIn(2) ? std::string(any(wholeNumbers)) : std::to_string(below(100'000));
}

std::string DocumentGenerator::space() { return oneIn(8) ? std::string(any(std::span(spaces).first(5))) : ""; }

std::string DocumentGenerator::bytesOfUtf8() {
  std::string result;
  for (std::size_t left = 1 + below(5); left > 0; --left) {
    const std::size_t byte = oneIn(3) ? below(256) : edgesOfUtf8[below(std::size(edgesOfUtf8))];
    result += static_cast<char>(static_cast<unsigned char>(byte));
  }
  return result;
}

std::string DocumentGenerator::mutated(std::string document) {
  for (std::size_t left = 1 + below(3); left > 0 && !document.empty(); --left) {
    const std::size_t place = below(document.size());
    const std::size_t other = below(document.size());
    switch (below(7)) {
      case 0:
        document[place] = static_cast<char>(static_cast<unsigned char>(below(256)));
        break;
      case 1:
        document[place] = static_cast<char>(document[place] ^ (1 << below(8)));
        break;
      case 2:
        document.erase(place, 1 + below(4));
        break;
      case 3:
        document.insert(place, any(tokens));
        break;
      case 4:
        document.resize(place);
        break;
      case 5:
        std::swap(document[place], document[other]);
        break;
      default:
        document.insert(place, document.substr(other, 1 + below(10)));
        break;
    }
  }
  return document;
}

}  // namespace launcher_stub::differential
