// The tests; or, with --kills N, so many kills in one go, for as long as one likes.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <string_view>
#include <thread>

#include "tests/kills/tally.h"

namespace end_to_end::kills {
namespace {

constexpr std::size_t killsForAPromotion = 50;
constexpr unsigned promotionsAtATime = 10;

struct Options {
  std::uint64_t kills = 0;
  std::uint64_t promotions = 0;
  bool promotionsGiven = false;
  std::uint64_t seed = 1;
  std::uint64_t workers = 6;  // they wait more than they compute
};

bool readOptions(int count, wchar_t** arguments, Options& options) {
  for (int i = 1; i + 1 < count; i += 2) {
    const std::wstring_view name = arguments[i];
    wchar_t* end = nullptr;
    const std::uint64_t number = std::wcstoull(arguments[i + 1], &end, 10);
    if (end == arguments[i + 1] || *end != L'\0') return false;
    if (name == L"--kills") {
      options.kills = number;
    } else if (name == L"--promotions") {
      options.promotions = number;
      options.promotionsGiven = true;
    } else if (name == L"--seed") {
      options.seed = number;
    } else if (name == L"--workers" && number > 0) {
      options.workers = number;
    } else {
      return false;
    }
  }
  if (!options.promotionsGiven) options.promotions = options.kills / killsForAPromotion;
  return count % 2 == 1 && options.kills + options.promotions > 0;
}

int usage() {
  std::fprintf(stderr, "kill_tests --kills N [--promotions N] [--seed S] [--workers N]\n");
  return 2;
}

int killAsAsked(const Options& options) {
  const std::uint64_t others = options.kills - (options.promotionsGiven ? 0 : options.promotions);
  Tally promotions;
  std::thread aside([&] {
    const auto atATime = static_cast<unsigned>(std::min<std::uint64_t>(options.promotions, promotionsAtATime));
    promotions = killInPromotions(options.seed, options.promotions, atATime);
  });
  const auto workers = static_cast<unsigned>(std::min(options.workers, others));
  Tally tally = killByChance(options.seed, others, workers);
  aside.join();
  tally.add(promotions);

  printLosses(tally);
  for (const std::string& failure : tally.failures) std::printf("FAILED: %s\n", failure.c_str());
  std::printf("seed %llu\nfigures: %s\n", static_cast<unsigned long long>(options.seed), tally.figures().c_str());
  const bool allKilled = tally.kills >= others + options.promotions;
  return tally.failures.empty() && allKilled && !lostTooMany(tally) ? 0 : 1;
}

}  // namespace
}  // namespace end_to_end::kills

extern "C" int wmain(int, wchar_t**);

int wmain(int count, wchar_t** arguments) {
  testing::InitGoogleTest(&count, arguments);
  if (count == 1) return RUN_ALL_TESTS();
  end_to_end::kills::Options options;
  if (!end_to_end::kills::readOptions(count, arguments, options)) return end_to_end::kills::usage();
  return end_to_end::kills::killAsAsked(options);
}
