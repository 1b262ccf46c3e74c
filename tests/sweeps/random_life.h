// One life of one installation, from one seed: thousands of launches on one disk, with everything that happens to an
// installation in between and meanwhile. The same seed gives the same life, on any machine, traced or not.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace launcher_stub::sweeps {

constexpr std::uint64_t launchesOfALife = 2'000;

struct LifeReport {
  std::uint64_t seed = 0;
  std::uint64_t launches = 0;
  std::uint64_t machines = 0;  // one more after each power cut
  std::uint64_t calls = 0;     // of the platform
  std::uint64_t digest = 0;    // of calls, times, outcomes and disks: equal for equal lives
  std::string findings;        // what was wrong with the last launch; empty is what it should be
  std::string plan;
  std::string trace;                                          // of the last launches, where it was asked for
  std::map<std::string, std::uint64_t, std::less<>> reached;  // how often, by name
};

enum class Tracing { off, on };

// Ends with the first launch in which something is wrong.
LifeReport liveRandomly(std::uint64_t seed, std::uint64_t launches = launchesOfALife, Tracing tracing = Tracing::off);

// What lives have to come across, sooner or later; a long run that misses one of them is not worth much.
const std::vector<std::string_view>& toBeReached();

}  // namespace launcher_stub::sweeps
