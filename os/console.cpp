#include "os/console.h"

#include <windows.h>

#include <algorithm>
#include <string>

#include "os/text.h"

namespace launcher_stub::os {
namespace {

// In lines: older consoles refuse large writes, and no line cuts a character in two.
bool writeToConsole(HANDLE console, std::string_view text) {
  const std::wstring wide = toWide(text);
  std::wstring_view rest = wide;
  while (!rest.empty()) {
    const std::size_t line = std::min(rest.find(L'\n'), rest.size() - 1) + 1;
    DWORD written = 0;
    if (!WriteConsoleW(console, rest.data(), static_cast<DWORD>(line), &written, nullptr) || written == 0) return false;
    rest.remove_prefix(written);
  }
  return true;
}

bool writeBytes(HANDLE file, std::string_view text) {
  while (!text.empty()) {
    DWORD written = 0;
    if (!WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) || written == 0) return false;
    text.remove_prefix(written);
  }
  return true;
}

}  // namespace

bool writeText(Stream stream, std::string_view text) {
  HANDLE handle = GetStdHandle(stream == Stream::output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
  DWORD mode = 0;
  return GetConsoleMode(handle, &mode) ? writeToConsole(handle, text) : writeBytes(handle, text);
}

}  // namespace launcher_stub::os
