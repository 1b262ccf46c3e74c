// Where the lives take place.
#pragma once

#include <cstdint>
#include <memory>

#include "tests/kills/kinds.h"

namespace end_to_end::kills {

// Two installations that serve one life after the other, so that programs need not be copied for each. One thread at a
// time; several stages may come into being at once.
class Stage {
 public:
  Stage();

  // Forgets the life before and prepares the kind's world and runtimes. `grandchild`: the runtimes start another
  // process each.
  Installation& layOut(const Kind& kind, bool grandchild);

  // From the launcher's start to its runtime's, by the launches so far.
  std::uint64_t startMs() const { return startMs_; }
  void learnStartMs(std::uint64_t measured) { startMs_ = (startMs_ + measured) / 2; }

 private:
  std::unique_ptr<Installation> grown_;
  std::unique_ptr<Installation> bare_;  // its state root is not there before the first launch
  std::uint64_t startMs_ = 400;
};

}  // namespace end_to_end::kills
