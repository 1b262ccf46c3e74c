// Where the program is: in the code under test, or in the simulated platform below it.
//
// For tests that let something fail in the code under test alone, such as its allocations. Every body of a platform
// function and all that the machine does by itself count as inside.
#pragma once

#include <utility>

namespace launcher_stub::sim {

inline thread_local int platformDepth = 0;

inline bool insidePlatform() { return platformDepth > 0; }

// Marks a scope as inside.
class InsidePlatform {
 public:
  InsidePlatform() noexcept { ++platformDepth; }
  ~InsidePlatform() { --platformDepth; }
  InsidePlatform(const InsidePlatform&) = delete;
  InsidePlatform& operator=(const InsidePlatform&) = delete;
};

// Marks a scope in which the machine runs the code under test.
class OutsidePlatform {
 public:
  OutsidePlatform() noexcept : depth_(std::exchange(platformDepth, 0)) {}
  ~OutsidePlatform() { platformDepth = depth_; }
  OutsidePlatform(const OutsidePlatform&) = delete;
  OutsidePlatform& operator=(const OutsidePlatform&) = delete;

 private:
  int depth_;
};

}  // namespace launcher_stub::sim
