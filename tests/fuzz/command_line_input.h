// Arguments out of a fuzzer's bytes. Shared by the fuzz target and the test that lets the system split them.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "tests/fuzz/byte_source.h"

namespace launcher_stub::fuzz {

// A zero byte ends an argument; the bytes that a command line gives a meaning stand for themselves, some others for
// characters of more than one byte, or of more than one code unit on Windows.
inline std::vector<std::wstring> argumentsOf(std::string_view bytes) {
  std::vector<std::wstring> arguments;
  ByteSource source(bytes);
  while (!source.empty()) {
    std::wstring& argument = arguments.emplace_back();
    for (const char byte : source.takeUntil('\0')) {
      const auto code = static_cast<unsigned char>(byte);
      if (code < 0x80) {
        argument += static_cast<wchar_t>(code);
      } else {
        argument += code < 0xC0 ? L"\u0416" : L"\U0001F680";
      }
    }
  }
  return arguments;
}

}  // namespace launcher_stub::fuzz
