// Parsing in one expression, for tests.
#pragma once

#include <string>
#include <string_view>

#include "json/parser.h"
#include "tests/support/exact_bytes.h"

namespace launcher_stub {

struct Parsed {
  bool succeeded = false;
  JsonValue value;
  std::string error;  // "accepted" on success, so that comparing the outcome needs one check only
};

inline Parsed parse(std::string_view text) {
  const ExactBytes bytes(text);
  Parsed result;
  result.error = "accepted";
  result.succeeded = parseJsonDocument(bytes.view().data(), bytes.view().size(), result.value, result.error);
  return result;
}

inline std::string quoted(const std::string& inside) { return '"' + inside + '"'; }

inline std::string repeated(int count, std::string_view text) {
  std::string result;
  for (int i = 0; i < count; ++i) result += text;
  return result;
}

// `inside` within `depth` arrays.
inline std::string nestedArrays(int depth, std::string_view inside) {
  return repeated(depth, "[") + std::string(inside) + repeated(depth, "]");
}

}  // namespace launcher_stub
