// What a power cut leaves on the disk.
//
// What may happen to each change that has not settled, for itself and in any combination:
// - an entry that was made (file, directory, link) or removed: it stays made or removed, or it is as before;
// - contents that were written and not flushed: they are all there, or as before, or cut off in the middle, or the file
//   has its new length and holds zeros.
// What is lost takes along what was built on it: a later change of the same entry, everything in a lost directory.
//
// What may not happen: a change is undone after 30 s, by when the system has written everything out. Flushed contents
// are damaged. A rename with write-through is half done, or is undone after it has returned: the target is the old file
// or the new one, whole if the contents were flushed before; with the new one all directories on the way to it are
// safe. A file that nobody touched is damaged.
//
// When the launcher is only killed, or ends, the disk stays as it is: the system goes on and writes out everything.
#pragma once

#include <string>
#include <vector>

#include "tests/simulation/sim_disk.h"

namespace launcher_stub::sim {

class PowerCut {
 public:
  // `time`: of the cut, in units of 100 ns.
  PowerCut(const Disk& disk, std::uint64_t time);

  // Every disk that the cut may leave; the first is the one with nothing lost. Of changes to what nobody will ever look
  // at again, by key, not every combination is given: all of them are kept or all are lost, in turn. Throws
  // std::length_error where there are more than 20,000.
  std::vector<Disk> images(bool (*isNeverLookedAt)(const std::wstring& key) = nullptr) const;

  // One of them, by chance: `pick(n)` gives a number below n.
  template <typename Pick>
  Disk randomImage(Pick pick) const {
    std::vector<int> outcomes;
    for (const UnsettledChange& change : changes_) outcomes.push_back(pick(outcomeCount(change)));
    return imageOf(outcomes);
  }

 private:
  static int outcomeCount(const UnsettledChange& change) { return change.isWrite ? 4 : 2; }
  Disk imageOf(const std::vector<int>& outcomes) const;

  const Disk& disk_;
  std::vector<UnsettledChange> changes_;
};

}  // namespace launcher_stub::sim
