// What a kill may never break, judged by what lies on the disk alone; whatever was foretold.
#pragma once

#include <string>
#include <vector>

#include "tests/kills/kinds.h"

namespace end_to_end::kills {

// One launch, as it was found when nothing of it lived any more.
struct Judged {
  const Kind& kind;
  const Found& before;
  const Found& after;
  bool killed;                 // else it ended by itself
  std::size_t kills;           // since the kind's first world, with this one; by us or by the system
  std::size_t lostStarts;      // of this launch, by the system
  std::size_t restarts;        // that the candidate's runtimes had begun to ask for since then
  std::size_t restartsBefore;  // without that of its last start
  bool soaked;                 // the candidate had left its health mark a minute before the end of this launch
};

// The promises that are broken, in words; empty is what it should be.
std::vector<std::string> brokenPromises(const Judged& launch);

}  // namespace end_to_end::kills
