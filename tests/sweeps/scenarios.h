// Named situations in which a launcher starts, from which the sweeps depart.
#pragma once

#include <vector>

#include "tests/simulation/sim_os.h"

namespace launcher_stub::sweeps {

struct Scenario {
  const char* name;
  void (*prepare)(sim::SimOs& machine);            // what is installed, and what the runtimes do
  void (*disturb)(sim::SimOs& machine) = nullptr;  // what else happens on the machine while the launcher runs
};

const std::vector<Scenario>& scenarios();

}  // namespace launcher_stub::sweeps
