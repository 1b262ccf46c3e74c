// FNV-1a, over numbers as well as over bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tests/simulation/sim_disk.h"

namespace launcher_stub::sweeps {

class Digest {
 public:
  void add(std::string_view bytes) {
    for (const char byte : bytes) mix(static_cast<unsigned char>(byte));
    mix(0x100);
  }
  void add(const std::wstring& text) {
    for (const wchar_t character : text) mix(static_cast<std::uint64_t>(character));
    mix(0x110000);
  }
  void add(std::uint64_t number) { mix(number); }
  std::uint64_t value() const { return value_; }

  // All but the times.
  void add(const sim::Node& node) {
    add(static_cast<std::uint64_t>(node.kind) + (node.readOnly ? 16 : 0) + (node.listIsPrivate ? 32 : 0) +
        64 * static_cast<std::uint64_t>(node.owner));
    add(node.contents);
  }

 private:
  void mix(std::uint64_t number) { value_ = (value_ ^ number) * 0x100000001B3ull; }
  std::uint64_t value_ = 0xCBF29CE484222325ull;
};

}  // namespace launcher_stub::sweeps
