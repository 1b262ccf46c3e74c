// Waiting for what other processes do: bounded, and no longer than needed.
#pragma once

#include <cstdint>
#include <functional>

namespace end_to_end {

// Far more than anything takes on a quiet machine: several tests share a few cores, and a limit that is reached means
// that it will never happen.
constexpr std::uint32_t patienceMs = 60'000;

// Asks every 20 ms. False: not within `limit` milliseconds.
bool waitUntil(const std::function<bool()>& happened, std::uint32_t limit = patienceMs);

// The performance counter in milliseconds, the clock of the sample runtime's log too.
std::uint64_t milliseconds();

}  // namespace end_to_end
