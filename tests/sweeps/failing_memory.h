// The memory of the program, in which one allocation of the code under test can be made to fail.
//
// A program that is linked with this has all forms of operator new and delete replaced. One thread only.
#pragma once

#include <cstdint>
#include <functional>

namespace launcher_stub::sweeps {

// Counts the allocations made while it lives, without those inside the simulated platform. One at a time.
class AllocationCount {
 public:
  // `failing`: the number, from 1, of the allocation that fails; 0: none. `watch` is called with the number of each.
  explicit AllocationCount(std::uint64_t failing = 0, std::function<void(std::uint64_t)> watch = {});
  ~AllocationCount();
  AllocationCount(const AllocationCount&) = delete;
  AllocationCount& operator=(const AllocationCount&) = delete;

  std::uint64_t count() const;

 private:
  std::function<void(std::uint64_t)> watch_;
};

// Blocks of the whole program that have been allocated and not given back.
std::int64_t livingBlocks();

}  // namespace launcher_stub::sweeps
