// Text conversion on this system, where a wchar_t holds a whole code point; surrogates are invalid in both directions,
// so that text means the same as on Windows.
#include <bit>
#include <cstdint>

#include "os/text.h"

namespace launcher_stub::os {
namespace {

bool isScalarValue(std::uint32_t code) { return code < 0xD800 || (code > 0xDFFF && code <= 0x10FFFF); }

// The length that a sequence's first byte announces, 0 for a byte that cannot be first; `bits`: its share of the code.
int sequenceLength(std::uint32_t lead, std::uint32_t& bits) {
  if (lead < 0x80) return bits = lead, 1;
  if (lead >= 0xC2 && lead < 0xE0) return bits = lead & 0x1F, 2;
  if (lead >= 0xE0 && lead < 0xF0) return bits = lead & 0x0F, 3;
  if (lead >= 0xF0 && lead < 0xF5) return bits = lead & 0x07, 4;
  return 0;
}

// Takes one code point off the front. False: the text does not begin with a valid one.
bool takeCodePoint(std::string_view& text, std::uint32_t& code) {
  static constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const int length = sequenceLength(static_cast<unsigned char>(text.front()), code);
  if (length == 0 || text.size() < static_cast<std::size_t>(length)) return false;
  for (int i = 1; i < length; ++i) {
    const std::uint32_t byte = static_cast<unsigned char>(text[static_cast<std::size_t>(i)]);
    if ((byte & 0xC0) != 0x80) return false;
    code = (code << 6) | (byte & 0x3F);
  }
  text.remove_prefix(static_cast<std::size_t>(length));
  return isScalarValue(code) && code >= smallest[length];
}

void appendUtf8(std::string& out, std::uint32_t code) {
  const auto byte = [&out](std::uint32_t value) { out += static_cast<char>(static_cast<unsigned char>(value)); };
  if (code < 0x80) return byte(code);
  if (code < 0x800) {
    byte(0xC0 | (code >> 6));
  } else {
    if (code < 0x10000) {
      byte(0xE0 | (code >> 12));
    } else {
      byte(0xF0 | (code >> 18));
      byte(0x80 | ((code >> 12) & 0x3F));
    }
    byte(0x80 | ((code >> 6) & 0x3F));
  }
  byte(0x80 | (code & 0x3F));
}

}  // namespace

std::wstring toWide(std::string_view utf8) {
  std::wstring wide;
  while (!utf8.empty()) {
    std::uint32_t code = 0;
    if (!takeCodePoint(utf8, code)) return {};
    wide += static_cast<wchar_t>(code);
  }
  return wide;
}

std::string toUtf8(std::wstring_view wide) {
  std::string utf8;
  for (const wchar_t character : wide) {
    const auto code = std::bit_cast<std::uint32_t>(character);
    if (!isScalarValue(code)) return {};
    appendUtf8(utf8, code);
  }
  return utf8;
}

}  // namespace launcher_stub::os
