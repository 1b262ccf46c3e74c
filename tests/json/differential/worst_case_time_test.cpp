// How long the largest documents take. A time is only worth something in an optimised build.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "tests/json/parsing.h"
#include "tests/json/worst_cases.h"

namespace launcher_stub {
namespace {

// It is under 1 ms on a quiet machine (json_worst_cases prints it). The bound is wide enough for a loaded one, and
// narrow enough for a cost that grows with the square of the size.
constexpr double boundMs = 8;

double bestMilliseconds(const std::string& document) {
  double best = 1e9;
  for (int run = 0; run < 7; ++run) {
    const auto start = std::chrono::steady_clock::now();
    (void)parse(document);
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
    best = std::min(best, taken.count());
  }
  return best;
}

TEST(parseJsonDocument, takesNoneOfTheLargestDocumentsLong) {
  for (const WorstCase& c : worstCases()) {
    SCOPED_TRACE(c.name);
    EXPECT_LT(bestMilliseconds(c.document), boundMs);
  }
}

}  // namespace
}  // namespace launcher_stub
