// What all parts of a random life work with: the machine, who watches it, chance, and what has been reached.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tests/simulation/sim_os.h"
#include "tests/sweeps/chance.h"
#include "tests/sweeps/ledger.h"
#include "tests/sweeps/life_plan.h"
#include "tests/sweeps/world.h"

namespace launcher_stub::sweeps {

// Ends everything on the machine at once: leaves the launcher as no failure and no kill does.
struct PowerGone {};

struct Scene {
  explicit Scene(std::uint64_t seed) : chance(seed), plan(drawPlan(chance)) {}

  Chance chance;
  LifePlan plan;
  std::unique_ptr<sim::SimOs> machine;
  std::unique_ptr<Ledger> ledger;
  std::map<std::string, std::uint64_t, std::less<>> reached;  // how often
  std::uint64_t launch = 0;                                   // number of the launch, from 1
  bool quiet = false;                                         // nothing is to disturb this launch
  std::optional<World> afterTheCut;                           // what the power cut has left
  std::string findings;

  void mark(std::string_view name) { ++reached.try_emplace(std::string(name)).first->second; }
  // For the trace; nothing else may depend on it.
  void tell(std::string_view what) const {
    if (machine->tracing()) machine->note("LIFE", {}, what);
  }
  // An action of this launch alone: what is left of it when the launch is over does nothing.
  template <typename Doing>
  void duringThisLaunch(std::uint64_t afterMs, Doing doing) {
    machine->after(afterMs, [this, doing, number = launch] {
      if (number == launch && machine->launcherRuns()) doing();
    });
  }
};

// Another process opens the file or directory for a while, where it is there and can be opened.
void hold(const Scene& scene, const std::wstring& path, sim::Access share, std::uint64_t ms);

}  // namespace launcher_stub::sweeps
