// The operating system's cryptographic random source.
#pragma once

#include <string>

namespace launcher_stub::os {

// 32 random lowercase hexadecimal digits, four bits each: a nonce, or the tail of a temporary file's name.
// Throws std::runtime_error in the case, not known to occur, that the system has no randomness to give.
std::string randomHexDigits();

}  // namespace launcher_stub::os
