#include "tests/fuzz/fuzz_targets.h"

#include <cstdio>
#include <cstdlib>

namespace launcher_stub::fuzz {

std::vector<Target>& targets() {
  static std::vector<Target> all;
  return all;
}

void require(bool holds, std::string_view property) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %.*s\n", static_cast<int>(property.size()), property.data());
  std::abort();
}

}  // namespace launcher_stub::fuzz
