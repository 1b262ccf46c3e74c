// Compact, canonical output: equal values give equal bytes, and the parser reads them back to an equal value.
#pragma once

#include <cstdint>
#include <string>

#include "json/value.h"

namespace launcher_stub {

// The document's bytes: no white space, members in key order, no line feed at the end. No limit on size here.
std::string toJsonText(const JsonValue& value);

void appendJson(const JsonValue& value, std::string& out);

// `length` bytes at `bytes`, quoted and escaped. The bytes are not checked to be UTF-8.
void appendJsonString(const char* bytes, std::uint64_t length, std::string& out);

}  // namespace launcher_stub
