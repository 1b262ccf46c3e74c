// A launcher whose whole tree of processes is in sight: it runs in a job of the test's own, which ends nothing by
// itself.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tests/end_to_end/harness.h"

namespace end_to_end::kills {

class WatchedLauncher {
 public:
  explicit WatchedLauncher(Installation& installation);
  ~WatchedLauncher();
  WatchedLauncher(const WatchedLauncher&) = delete;
  WatchedLauncher& operator=(const WatchedLauncher&) = delete;

  Launcher& launcher() { return launcher_; }
  std::uint64_t startedAt() const { return startedAt_; }  // as of milliseconds()

  // Ends the launcher alone, from outside. False: it had ended by itself.
  bool kill();

  // Waits for the end of all processes of the tree: the launcher, the runtime and whatever they started.
  bool treeEndsWithin(std::uint32_t limit) const;

  // What is left of a tree that did not end: processes that live, and remains of which the system itself says that they
  // have ended. Under Wine such remains were seen, as it seems of a process that was being created when its creator was
  // killed: a wait on it returns at once, so nothing runs in it; yet the job counts it, its handles stay open, and
  // ending the job does not help.
  struct Survivors {
    std::size_t living = 0;
    std::size_t remains = 0;
  };
  Survivors survivors() const;

 private:
  std::uint32_t counted() const;

  Handle job_;
  Launcher launcher_;
  std::uint64_t startedAt_ = 0;
};

}  // namespace end_to_end::kills
