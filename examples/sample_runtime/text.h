// Text of the script and the log is UTF-8, that of paths and arguments UTF-16.
#pragma once

#include <string>
#include <string_view>

namespace sample_runtime {

std::wstring toWide(std::string_view utf8);

// A lone surrogate becomes U+FFFD; see hexUnits for an exact record.
std::string toUtf8(std::wstring_view wide);

// Each UTF-16 unit as four hexadecimal digits, separated by spaces.
std::string hexUnits(std::wstring_view wide);

// Cuts the first word off `rest` and returns it; words are separated by spaces. The rest has no leading space then.
std::string_view takeWord(std::string_view& rest);

}  // namespace sample_runtime
