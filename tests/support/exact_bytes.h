// A copy of a text whose memory ends with its last byte and holds no terminator: under AddressSanitizer a reader that
// goes one byte too far is caught.
#pragma once

#include <string_view>
#include <vector>

namespace launcher_stub {

class ExactBytes {
 public:
  explicit ExactBytes(std::string_view text) : bytes_(text.begin(), text.end()) { bytes_.shrink_to_fit(); }

  std::string_view view() const { return {bytes_.data(), bytes_.size()}; }

 private:
  std::vector<char> bytes_;
};

}  // namespace launcher_stub
