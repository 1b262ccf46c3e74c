// An installation is laid out, its launcher killed at a moment drawn by chance and the disk judged, once or a few times
// over; then a launch in peace has to do what the killed ones had not.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/kills/kinds.h"
#include "tests/kills/stage.h"

namespace end_to_end::kills {

// How far the killed launch had got.
enum class Landing : std::uint8_t { beforeStateWrite, beforeStart, duringRun, afterRun };

struct Kill {
  std::string moment;  // in words
  Landing landing;
  Change lastChange;  // that had reached the disk
};

struct LifeReport {
  std::string kind;
  std::uint64_t seed = 0;
  std::vector<Kill> kills;
  std::string moment;                     // of the last kill, that it was to be, if need be; in words
  std::size_t tooLate = 0;                // launches that were over before they could be killed; judged all the same
  std::vector<std::string> failedStarts;  // of launchers, by the system; tried again
  std::uint64_t slowestEndMs = 0;         // from a launcher's end to that of its tree
  std::string lost;                       // what the system did by itself, so that the life says less; empty: nothing
  bool spoilsStage = false;               // something is left in it that disturbs the next life
  std::vector<std::string> findings;      // what is wrong; empty is what it should be
};

// At least one kill, at most `mostKills`. Throws where nothing can be prepared.
LifeReport live(Stage& stage, const Kind& kind, std::uint64_t seed, std::size_t mostKills);

}  // namespace end_to_end::kills
