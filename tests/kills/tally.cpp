#include "tests/kills/tally.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>

#include "tests/sweeps/chance.h"

namespace end_to_end::kills {
namespace {

using launcher_stub::sweeps::Chance;

constexpr std::size_t mostKillsOfALife = 3;
constexpr std::size_t mostFailures = 5;  // tell enough
constexpr int livesForLosses = 3;        // a life in which the system lost a program is lived again

const Kind& kindFor(std::uint64_t seed) {
  Chance chance(~seed);
  std::vector<unsigned> weights;
  for (const Kind& kind : kinds()) weights.push_back(kind.weight);
  return kinds()[static_cast<std::size_t>(chance.weighted(weights))];
}

std::string failureText(const LifeReport& report) {
  std::string text = "kind " + report.kind + ", seed " + std::to_string(report.seed);
  for (const Kill& kill : report.kills) text += ", killed " + kill.moment;
  const bool isLast = !report.kills.empty() && report.kills.back().moment == report.moment;
  if (!isLast) text += ", to be killed " + report.moment;
  for (const std::string& finding : report.findings) text += "\n  " + finding;
  const bool promotes = report.kind == promotion().name;
  return text + "\n  again, as far as time allows: kill_tests " + (promotes ? "--promotions" : "--kills") +
         " 1 --seed " + std::to_string(report.seed);
}

// Chance does not do that: the launcher may well be at fault.
std::string alwaysLostText(LifeReport report) {
  report.findings = {"lost " + std::to_string(livesForLosses) + " times in a row, the last time: " + report.lost};
  return failureText(report);
}

// Some threads that take the seeds in turn until there are enough kills.
class Workers {
 public:
  Workers(std::uint64_t firstSeed, std::size_t kills, bool promote)
      : nextSeed_(firstSeed), kills_(kills), promote_(promote) {}

  Tally work(unsigned workers) {
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < workers; ++i) threads.emplace_back([this] { workOne(); });
    for (std::thread& thread : threads) thread.join();
    return std::move(tally_);
  }

 private:
  void workOne() {
    try {
      std::unique_ptr<Stage> stage;
      while (const std::optional<std::uint64_t> seed = takeSeed()) live(stage, *seed);
    } catch (const std::exception& error) {
      const std::lock_guard lock(mutex_);
      tally_.failures.emplace_back(error.what());
    }
  }

  // None: the kills that have been made, or will surely be, are enough; or too much is wrong to go on.
  std::optional<std::uint64_t> takeSeed() {
    const std::lock_guard lock(mutex_);
    if (tally_.kills + underWay_ >= kills_ || tally_.failures.size() >= mostFailures || lostTooMany(tally_)) {
      return std::nullopt;
    }
    ++underWay_;
    return nextSeed_++;
  }

  void live(std::unique_ptr<Stage>& stage, std::uint64_t seed) {
    LifeReport report;
    for (int i = 0; i < livesForLosses; ++i) {
      if (stage == nullptr) stage = std::make_unique<Stage>();
      report = kills::live(*stage, promote_ ? promotion() : kindFor(seed), seed, promote_ ? 1 : mostKillsOfALife);
      if (report.spoilsStage) stage.reset();
      const std::lock_guard lock(mutex_);
      tally_.add(report);
      if (report.lost.empty() || !report.findings.empty()) break;
      if (i + 1 == livesForLosses) tally_.failures.push_back(alwaysLostText(report));
    }
    const std::lock_guard lock(mutex_);
    --underWay_;
  }

  std::mutex mutex_ = {};
  std::uint64_t nextSeed_;
  std::size_t kills_;
  bool promote_;
  std::size_t underWay_ = 0;  // lives, each with one kill at least
  Tally tally_ = {};
};

template <typename Key, typename Name>
std::string countsOf(const std::map<Key, std::size_t>& counts, Name name) {
  std::string text;
  for (const auto& [key, count] : counts) text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + name(key);
  return text;
}

const char* nameOfLanding(Landing landing) {
  static constexpr const char* names[] = {"before the state write", "between the write and the start", "during the run",
                                          "after it"};
  return names[static_cast<std::size_t>(landing)];
}

}  // namespace

void Tally::add(const LifeReport& report) {
  tooLate += report.tooLate;
  failedStarts.insert(failedStarts.end(), report.failedStarts.begin(), report.failedStarts.end());
  slowestEndMs = std::max(slowestEndMs, report.slowestEndMs);
  if (!report.lost.empty()) {
    lost.push_back(report.kind + ", seed " + std::to_string(report.seed) + ": " + report.lost);
    if (report.findings.empty()) return;
  }
  ++lives;
  if (!report.findings.empty()) failures.push_back(failureText(report));
  for (const Kill& kill : report.kills) {
    ++kills;
    ++byKind[report.kind];
    ++byLanding[kill.landing];
    ++byChange[kill.lastChange];
  }
}

void Tally::add(const Tally& other) {
  lives += other.lives;
  kills += other.kills;
  for (const auto& [kind, count] : other.byKind) byKind[kind] += count;
  for (const auto& [landing, count] : other.byLanding) byLanding[landing] += count;
  for (const auto& [change, count] : other.byChange) byChange[change] += count;
  tooLate += other.tooLate;
  failedStarts.insert(failedStarts.end(), other.failedStarts.begin(), other.failedStarts.end());
  slowestEndMs = std::max(slowestEndMs, other.slowestEndMs);
  lost.insert(lost.end(), other.lost.begin(), other.lost.end());
  failures.insert(failures.end(), other.failures.begin(), other.failures.end());
}

std::string Tally::figures() const {
  return std::to_string(kills) + " kills in " + std::to_string(lives) +
         " lives: " + countsOf(byLanding, nameOfLanding) + "; last on the disk: " + countsOf(byChange, nameOf) +
         "; kinds: " + countsOf(byKind, [](const std::string& kind) { return kind; }) + "; " + std::to_string(tooLate) +
         " launches were over before; slowest end of a tree " + std::to_string(slowestEndMs) +
         " ms; the system lost programs in " + std::to_string(lost.size()) + " lives and failed to start " +
         std::to_string(failedStarts.size());
}

Tally killByChance(std::uint64_t firstSeed, std::size_t kills, unsigned workers) {
  return Workers(firstSeed, kills, false).work(workers);
}

Tally killInPromotions(std::uint64_t firstSeed, std::size_t kills, unsigned workers) {
  return Workers(firstSeed, kills, true).work(workers);
}

void printLosses(const Tally& tally) {
  for (const std::string& one : tally.lost) std::printf("lost by the system: %s\n", one.c_str());
  for (const std::string& one : tally.failedStarts) std::printf("not started by the system: %s\n", one.c_str());
}

bool lostTooMany(const Tally& tally) { return tally.lost.size() > 3 + tally.kills / 25; }

}  // namespace end_to_end::kills
