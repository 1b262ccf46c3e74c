// Documents of the largest size that a reader accepts, each made to be as slow to read as its kind can be. Shared by
// the test that bounds the time and the program that measures it.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "json/messages.h"
#include "json/parser.h"

namespace launcher_stub {

struct WorstCase {
  const char* name;
  std::string document;
  std::string_view outcome = "accepted";  // or the error
};

// Shortest first: "", "a", "b", ..., then all of two letters, and so on. The letters need no escape.
inline std::string shortKey(std::size_t number) {
  constexpr std::string_view letters =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.:;,+*!?#$%&/()=<>@[]^{|}~ ";
  std::string key;
  for (; number > 0; number = (number - 1) / letters.size()) key += letters[(number - 1) % letters.size()];
  return key;
}

// `open`, then piece(0), piece(1), ... with commas between them as long as all fits, then `close`, and white space up
// to the largest size.
inline std::string filledDocument(std::string open, const std::function<std::string(std::size_t)>& piece,
                                  std::string_view close) {
  std::string document = std::move(open);
  for (std::size_t number = 0;; ++number) {
    const std::string next = (number == 0 ? "" : ",") + piece(number);
    if (document.size() + next.size() + close.size() > kMaxRecordBytes) break;
    document += next;
  }
  document += close;
  document.resize(kMaxRecordBytes, ' ');
  return document;
}

inline std::string arrayOf(std::string_view element) {
  return filledDocument(
      "[", [&](std::size_t) { return std::string(element); }, "]");
}

inline std::string objectOf(const std::function<std::string(std::size_t)>& key) {
  return filledDocument(
      "{", [&](std::size_t number) { return '"' + key(number) + "\":0"; }, "}");
}

inline std::string digits(std::size_t number, std::size_t width) {
  const std::string text = std::to_string(number);
  return std::string(width - text.size(), '0') + text;
}

// A number whose bits are those of `number` in reverse order: neighbours in the document are far apart in the order.
inline std::size_t scattered(std::size_t number, int bits) {
  std::size_t result = 0;
  for (int bit = 0; bit < bits; ++bit) result |= (number >> bit & 1) << (bits - 1 - bit);
  return result;
}

inline std::string repeatedText(std::size_t count, std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < count; ++i) result += text;
  return result;
}

// The same key of the largest size but for its last bytes.
inline std::string longKey(std::size_t number) { return std::string(kMaxStringBytes - 2, 'k') + digits(number, 2); }

// `members` members in descending order.
inline std::string objectOfFew(std::size_t members) {
  std::string object = "{";
  for (std::size_t left = members; left > 0; --left) object += '"' + shortKey(left) + "\":0" + (left > 1 ? "," : "}");
  return object;
}

inline std::vector<WorstCase> worstCases() {
  const auto deep = [](std::string_view inside) {
    return repeatedText(kMaxJsonDepth - 1, "[") + std::string(inside) + repeatedText(kMaxJsonDepth - 1, "]");
  };
  const std::string longest(kMaxStringBytes, 's');
  return {
      {"many keys, as short as can be", objectOf(shortKey)},
      {"many keys, ascending", objectOf([](std::size_t n) { return digits(n, 4); })},
      {"many keys, descending", objectOf([](std::size_t n) { return digits(9999 - n, 4); })},
      {"many keys, scattered", objectOf([](std::size_t n) { return digits(scattered(n, 13), 4); })},
      {"keys with eight bytes in common",
       objectOf([](std::size_t n) { return "prefix--" + digits(scattered(n, 12), 4); })},
      {"keys with forty bytes in common",
       objectOf([](std::size_t n) { return std::string(40, 'p') + digits(scattered(n, 11), 4); })},
      {"keys that begin with one another", objectOf([](std::size_t n) { return std::string(n, 'a'); })},
      {"keys of the largest size, the end different", objectOf(longKey)},
      {"keys of escapes", objectOf([](std::size_t n) { return "\\u00" + digits(n % 80 + 20, 2) + shortKey(n / 80); })},
      {"one empty key, over and over", objectOf([](std::size_t) { return ""; }), messages::duplicateKey},
      {"one repeated key behind many others",
       filledDocument(
           "{", [](std::size_t n) { return '"' + shortKey(n) + "\":0"; }, ",\"\":0}"),
       messages::duplicateKey},
      {"keys in groups that begin alike",
       objectOf([](std::size_t n) { return digits(scattered(n % 64, 6), 8) + digits(n / 64, 2); })},
      {"many keys, then a fault",
       filledDocument(
           "{", [](std::size_t n) { return '"' + shortKey(n) + "\":0"; }, ",x"),
       messages::objectSyntax},
      {"objects of 39 members", arrayOf(objectOfFew(39))},
      {"objects of 40 members", arrayOf(objectOfFew(40))},
      {"objects of one member", arrayOf("{\"\":0}")},
      {"objects of objects", arrayOf("{\"\":{\"\":{\"\":{}}}}")},
      {"objects of two members", arrayOf("{\"a\":0,\"\":0}")},
      {"empty objects", arrayOf("{}")},
      {"empty arrays", arrayOf("[]")},
      {"arrays of one number", arrayOf("[0]")},
      {"arrays within arrays, to the limit", arrayOf(deep(""))},
      {"one deep array of numbers",
       filledDocument(
           repeatedText(kMaxJsonDepth, "["), [](std::size_t) { return "0"; }, repeatedText(kMaxJsonDepth, "]"))},
      {"numbers of one digit", arrayOf("0")},
      {"numbers of sixteen digits", arrayOf("1234567890123456")},
      {"one long number", std::string(kMaxRecordBytes, '1')},
      {"literals", arrayOf("null")},
      {"empty strings", arrayOf("\"\"")},
      {"strings of one byte", arrayOf("\"s\"")},
      {"strings of sixteen bytes", arrayOf("\"sixteen bytes...\"")},
      {"strings of the largest size", arrayOf('"' + longest + '"')},
      {"short escapes", arrayOf('"' + repeatedText(4096, "\\n") + '"')},
      {"escapes of code points", arrayOf('"' + repeatedText(4096, "\\u0041") + '"')},
      {"surrogate pairs", arrayOf('"' + repeatedText(1024, "\\ud83d\\ude80") + '"')},
      {"two-byte characters", arrayOf('"' + repeatedText(2048, "\xC3\xA4") + '"')},
      {"plain bytes and others by turns", arrayOf('"' + repeatedText(1365, "a\xC3\xA4") + '"')},
      {"white space alone", std::string(kMaxRecordBytes, ' '), messages::missingValue},
      {"white space between all", arrayOf(" \t\r\n0 ")},
  };
}

}  // namespace launcher_stub
