// Prints how long the largest documents take to be read and freed, in milliseconds: the best and the middle one of many
// runs.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "tests/json/worst_cases.h"

namespace {

using namespace launcher_stub;

constexpr std::size_t runs = 101;

// In ascending order.
std::vector<double> millisecondsOf(const std::string& document) {
  std::vector<double> taken;
  for (std::size_t run = 0; run < runs; ++run) {
    const auto start = std::chrono::steady_clock::now();
    {
      JsonValue value;
      std::string error;
      (void)parseJsonDocument(document.data(), document.size(), value, error);
    }
    taken.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
  }
  std::sort(taken.begin(), taken.end());
  return taken;
}

}  // namespace

int main() {
  double worstBest = 0;
  double worstMiddle = 0;
  std::printf("  best  middle\n");
  for (const WorstCase& c : worstCases()) {
    const std::vector<double> taken = millisecondsOf(c.document);
    worstBest = std::max(worstBest, taken.front());
    worstMiddle = std::max(worstMiddle, taken[runs / 2]);
    std::printf("%6.3f  %6.3f  %s\n", taken.front(), taken[runs / 2], c.name);
  }
  std::printf("%6.3f  %6.3f  the worst\n", worstBest, worstMiddle);
  return 0;
}
