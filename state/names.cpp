#include "state/names.h"

#include <algorithm>
#include <cstddef>

namespace launcher_stub {
namespace {

constexpr std::size_t minSlotNameBytes = 4;
constexpr std::size_t minTokenBytes = 8;
constexpr std::size_t maxNameBytes = 64;  // of both

// By their bytes and without the locale, so that no other alphabet's digits or letters can slip in.
bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }

bool isSlotNameByte(char byte) { return isDigit(byte) || (byte >= 'a' && byte <= 'f'); }

bool isTokenByte(char byte) {
  return isDigit(byte) || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || byte == '-' || byte == '_';
}

}  // namespace

bool isSlotName(std::string_view name) {
  return name.size() >= minSlotNameBytes && name.size() <= maxNameBytes && std::ranges::all_of(name, isSlotNameByte);
}

bool isRunnableSlotName(std::string_view name) { return name == seedSlotName || isSlotName(name); }

bool isToken(std::string_view text) {
  return text.size() >= minTokenBytes && text.size() <= maxNameBytes && std::ranges::all_of(text, isTokenByte);
}

}  // namespace launcher_stub
