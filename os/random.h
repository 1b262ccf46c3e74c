// The operating system's cryptographic random source.
#pragma once

#include <exception>
#include <string>

namespace launcher_stub::os {

struct NoRandomness final : std::exception {};

// 32 random lowercase hexadecimal digits, four bits each: a nonce, or the tail of a temporary file's name.
// Throws NoRandomness in the case, not known to occur, that the system has none to give.
std::string randomHexDigits();

}  // namespace launcher_stub::os
