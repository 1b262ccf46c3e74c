// Every text that the parser reports.
#pragma once

#include <string_view>

namespace launcher_stub::messages {

constexpr std::string_view recordTooLarge = "record too large";
constexpr std::string_view trailingData = "trailing data";
constexpr std::string_view depthExceeded = "depth exceeded";
constexpr std::string_view missingValue = "missing value";
constexpr std::string_view invalidNumber = "invalid number";
constexpr std::string_view arraySyntax = "array syntax";
constexpr std::string_view objectSyntax = "object syntax";
constexpr std::string_view duplicateKey = "duplicate key";
constexpr std::string_view expectedString = "expected string";
constexpr std::string_view unterminatedString = "unterminated string";
constexpr std::string_view controlInString = "control in string";
constexpr std::string_view badEscape = "bad escape";
constexpr std::string_view badUnicodeEscape = "bad unicode escape";
constexpr std::string_view missingLowSurrogate = "missing low surrogate";
constexpr std::string_view badLowSurrogate = "bad low surrogate";
constexpr std::string_view unpairedLowSurrogate = "unpaired low surrogate";
constexpr std::string_view invalidUtf8 = "invalid utf8";
constexpr std::string_view stringTooLong = "string too long";

}  // namespace launcher_stub::messages
