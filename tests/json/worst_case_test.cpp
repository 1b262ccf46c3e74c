#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "json/messages.h"
#include "tests/json/parsing.h"
#include "tests/json/worst_cases.h"

namespace launcher_stub {
namespace {

// The time that counts is that of a release build, and it is under 1 ms (json_worst_cases prints it). These bounds are
// wide enough for a loaded machine, and narrow enough for a cost that grows with the square of the size.
#ifdef NDEBUG
constexpr double boundMs = 8;
#else
constexpr double boundMs = 160;  // not optimised, under sanitizers
#endif

double bestMilliseconds(const std::string& document) {
  double best = 1e9;
  for (int run = 0; run < 2; ++run) {
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

TEST(parseJsonDocument, readsTheWorstCasesForWhatTheyAre) {
  for (const WorstCase& c : worstCases()) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.document.size(), kMaxRecordBytes);
    EXPECT_EQ(parse(c.document).error, c.outcome);
  }
}

}  // namespace
}  // namespace launcher_stub
