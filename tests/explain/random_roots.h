// Installations in every condition, by chance: each from one seed.
#pragma once

#include <cstdint>
#include <string>

#include "tests/simulation/sim_os.h"

namespace launcher_stub::explain {

// Lays out runtimes, slots, deliveries, both state files, a request and the bootstrap on the machine. What was made of
// the documents is told by what lies on the disk. Every slot that is complete can be started, and runs on.
void layOutRandomly(sim::SimOs& sim, std::uint64_t seed);

}  // namespace launcher_stub::explain
