// All chance in a random life, from its one seed. Integer arithmetic alone, so that it falls the same way everywhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace launcher_stub::sweeps {

class Chance {
 public:
  explicit Chance(std::uint64_t seed) : engine_(seed) {}

  std::uint64_t bits() { return engine_(); }
  std::uint64_t below(std::uint64_t limit) { return engine_() % limit; }  // `limit` is at least 1
  std::uint64_t between(std::uint64_t first, std::uint64_t last) { return first + below(last - first + 1); }
  bool oneIn(std::uint64_t count) { return below(count) == 0; }

  // From `first` to `last`, each order of magnitude about as likely as the next: most are short, a few are long.
  std::uint64_t spread(std::uint64_t first, std::uint64_t last) {
    std::uint64_t limit = last;
    while (limit / 3 > first && !oneIn(3)) limit /= 3;
    return between(first, limit);
  }

  template <typename Value>
  const Value& pick(const std::vector<Value>& values) {
    return values[below(values.size())];
  }

  // The index of one of the weights; -1 where all are 0.
  template <typename Weights>
  int weighted(const Weights& weights) {
    std::uint64_t sum = 0;
    for (const unsigned weight : weights) sum += weight;
    if (sum == 0) return -1;
    std::uint64_t left = below(sum);
    int index = 0;
    for (const unsigned weight : weights) {
      if (left < weight) return index;
      left -= weight;
      ++index;
    }
    return -1;
  }

 private:
  std::mt19937_64 engine_;
};

}  // namespace launcher_stub::sweeps
