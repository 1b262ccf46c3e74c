// Text between UTF-16 and UTF-8, by the system and not by the code under test.
#pragma once

#include <string>
#include <string_view>

namespace call_faults {

std::string toUtf8(std::wstring_view wide);
std::wstring toWide(std::string_view utf8);

}  // namespace call_faults
