// Many lives, some at a time, and what they come to.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/kills/life.h"

namespace end_to_end::kills {

struct Tally {
  std::size_t lives = 0;
  std::size_t kills = 0;
  std::map<std::string, std::size_t> byKind;
  std::map<Landing, std::size_t> byLanding;
  std::map<Change, std::size_t> byChange;
  std::size_t tooLate = 0;
  std::uint64_t slowestEndMs = 0;
  std::vector<std::string> lost;          // lives that were lived again: what the system did
  std::vector<std::string> failedStarts;  // of launchers
  std::vector<std::string> failures;      // each with the command that repeats it

  void add(const LifeReport& report);
  void add(const Tally& other);
  std::string figures() const;
};

// At least so many kills, of all kinds but the promotion: one life for each seed from `firstSeed` on.
Tally killByChance(std::uint64_t firstSeed, std::size_t kills, unsigned workers);

// So many promotions, at most `workers` at a time. Each takes more than a minute, and hardly any processor time.
Tally killInPromotions(std::uint64_t firstSeed, std::size_t kills, unsigned workers);

// Prints what the system did by itself, a line for each.
void printLosses(const Tally& tally);

// Whether the system has lost more programs of so many lives than can be put down to it.
bool lostTooMany(const Tally& tally);

}  // namespace end_to_end::kills
