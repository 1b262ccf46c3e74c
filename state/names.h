// The rules of the names that the documents hold.
#pragma once

#include <string_view>

namespace launcher_stub {

constexpr std::string_view seedSlotName = "seed";

// 4 to 64 of "0"-"9" and "a"-"f". "seed" is not one.
bool isSlotName(std::string_view name);

// A slot name, or exactly "seed".
bool isRunnableSlotName(std::string_view name);

// Request ids and nonces: 8 to 64 of "A"-"Z", "a"-"z", "0"-"9", "-" and "_".
bool isToken(std::string_view text);

}  // namespace launcher_stub
