// Conversion between the UTF-16 of paths and the UTF-8 of documents and messages.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace launcher_stub::os {

// Strict in both directions: text that is not valid (a broken UTF-8 sequence, a lone surrogate) gives an empty string.
std::wstring toWide(std::string_view utf8);
std::string toUtf8(std::wstring_view wide);

// A number in decimal digits.
std::wstring toWideDigits(std::uint64_t number);

// The text in the system's narrow code page; characters that the code page lacks become "?".
std::string toSystemCodePage(std::wstring_view wide);

}  // namespace launcher_stub::os
