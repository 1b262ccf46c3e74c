#include "text.h"

#include <windows.h>

namespace sample_runtime {

std::wstring toWide(std::string_view utf8) {
  if (utf8.empty()) return {};
  const int length = static_cast<int>(utf8.size());
  const int size = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(size), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, wide.data(), size);
  return wide;
}

std::string toUtf8(std::wstring_view wide) {
  if (wide.empty()) return {};
  const int length = static_cast<int>(wide.size());
  const int size = WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, utf8.data(), size, nullptr, nullptr);
  return utf8;
}

std::string hexUnits(std::wstring_view wide) {
  std::string text;
  for (const wchar_t unit : wide) {
    if (!text.empty()) text += ' ';
    for (int shift = 12; shift >= 0; shift -= 4) text += "0123456789abcdef"[(unit >> shift) & 15];
  }
  return text;
}

std::string_view takeWord(std::string_view& rest) {
  const std::size_t end = rest.find(' ');
  const std::string_view word = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end);
  while (!rest.empty() && rest.front() == ' ') rest.remove_prefix(1);
  return word;
}

}  // namespace sample_runtime
