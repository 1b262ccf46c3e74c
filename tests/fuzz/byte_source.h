// Makes choices out of a fuzzer's bytes. When they are used up, every choice is the first one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace launcher_stub::fuzz {

class ByteSource {
 public:
  explicit ByteSource(std::string_view bytes) : bytes_(bytes) {}

  bool empty() const { return bytes_.empty(); }

  unsigned char byte() {
    if (bytes_.empty()) return 0;
    const auto first = static_cast<unsigned char>(bytes_.front());
    bytes_.remove_prefix(1);
    return first;
  }

  // At most 256.
  std::size_t below(std::size_t limit) { return byte() % limit; }

  std::string_view take(std::size_t count) {
    const std::string_view taken = bytes_.substr(0, count);
    bytes_.remove_prefix(taken.size());
    return taken;
  }

  // Up to the next `separator`, which is skipped, or to the end.
  std::string_view takeUntil(char separator) {
    const std::string_view taken = take(std::min(bytes_.find(separator), bytes_.size()));
    take(1);
    return taken;
  }

 private:
  std::string_view bytes_;
};

}  // namespace launcher_stub::fuzz
