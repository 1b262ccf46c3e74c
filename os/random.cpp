#include "os/random.h"

#include <windows.h>

#include <ntsecapi.h>

#include <array>
#include <cstdint>

namespace launcher_stub::os {

std::string randomHexDigits() {
  constexpr char digits[] = "0123456789abcdef";
  std::array<std::uint8_t, 16> bytes{};
  if (!RtlGenRandom(bytes.data(), static_cast<ULONG>(bytes.size()))) throw NoRandomness();

  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

}  // namespace launcher_stub::os
