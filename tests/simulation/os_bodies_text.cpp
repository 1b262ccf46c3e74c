// The system's code page. UTF-8 and wide text are converted as launcher-explain does it on this system.
#include <cstdint>
#include <string>
#include <string_view>

#include "os/text.h"

namespace launcher_stub::os {

// As the western European code page does it, without its few characters between 0x80 and 0x9F.
std::string toSystemCodePage(std::wstring_view wide) {
  std::string narrow;
  for (const wchar_t character : wide) {
    const auto code = static_cast<std::uint32_t>(character);
    const bool known = code < 0x80 || (code >= 0xA0 && code <= 0xFF);
    narrow += known ? static_cast<char>(static_cast<unsigned char>(code)) : '?';
  }
  return narrow;
}

}  // namespace launcher_stub::os
