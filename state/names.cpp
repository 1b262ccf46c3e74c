#include "state/names.h"

#include <cstddef>

namespace launcher_stub {
namespace {

constexpr std::string_view slotNameBytes = "0123456789abcdef";
constexpr std::string_view tokenBytes = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

constexpr std::size_t minSlotNameBytes = 4;
constexpr std::size_t minTokenBytes = 8;
constexpr std::size_t maxNameBytes = 64;  // of both

// Byte by byte and without the locale, so that no other alphabet's digits or letters can slip in.
bool consistsOf(std::string_view allowed, std::string_view text) {
  return text.find_first_not_of(allowed) == std::string_view::npos;
}

}  // namespace

bool isSlotName(std::string_view name) {
  return name.size() >= minSlotNameBytes && name.size() <= maxNameBytes && consistsOf(slotNameBytes, name);
}

bool isRunnableSlotName(std::string_view name) { return name == seedSlotName || isSlotName(name); }

bool isToken(std::string_view text) {
  return text.size() >= minTokenBytes && text.size() <= maxNameBytes && consistsOf(tokenBytes, text);
}

}  // namespace launcher_stub
