#include "os/text.h"

#include <windows.h>

#include <climits>

namespace launcher_stub::os {
namespace {

bool fitsOneCall(std::size_t length) { return length > 0 && length <= INT_MAX; }

std::string toNarrow(UINT codePage, DWORD flags, const char* replacement, std::wstring_view wide) {
  if (!fitsOneCall(wide.size())) return {};
  const int length = static_cast<int>(wide.size());
  const int size = WideCharToMultiByte(codePage, flags, wide.data(), length, nullptr, 0, replacement, nullptr);
  if (size <= 0) return {};
  std::string narrow(static_cast<std::size_t>(size), '\0');
  if (WideCharToMultiByte(codePage, flags, wide.data(), length, narrow.data(), size, replacement, nullptr) != size) {
    return {};
  }
  return narrow;
}

}  // namespace

std::wstring toWide(std::string_view utf8) {
  if (!fitsOneCall(utf8.size())) return {};
  const int length = static_cast<int>(utf8.size());
  const int size = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), length, nullptr, 0);
  if (size <= 0) return {};
  std::wstring wide(static_cast<std::size_t>(size), L'\0');
  if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), length, wide.data(), size) != size) return {};
  return wide;
}

std::string toUtf8(std::wstring_view wide) { return toNarrow(CP_UTF8, WC_ERR_INVALID_CHARS, nullptr, wide); }

std::wstring toWideDigits(std::uint64_t number) {
  const std::string digits = std::to_string(number);
  return {digits.begin(), digits.end()};
}

std::string toSystemCodePage(std::wstring_view wide) {
  // A system set to UTF-8 lacks no character, and refuses both the flag and the replacement.
  if (GetACP() == CP_UTF8) return toNarrow(CP_ACP, 0, nullptr, wide);
  return toNarrow(CP_ACP, WC_NO_BEST_FIT_CHARS, "?", wide);
}

}  // namespace launcher_stub::os
