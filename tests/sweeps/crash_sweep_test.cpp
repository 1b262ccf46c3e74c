// Every crash point, and every crash point of the recovery from it.
//
// In each scenario the power is cut, or the launcher killed, before and after every call that changes anything, with
// every combination of lost changes that a power cut allows. From each disk that this can leave the launcher starts
// again and is cut off again, in all the same ways; from each of those disks it starts twice more and is left in peace.
// Disks that the launcher cannot tell apart are gone on from once.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <unordered_set>
#include <vector>

#include "tests/simulation/sim_power_cut.h"
#include "tests/sweeps/effort.h"
#include "tests/sweeps/world.h"

namespace launcher_stub::sweeps {
namespace {

struct Counts {
  std::uint64_t points = 0;  // at which the launcher was cut off
  std::uint64_t disks = 0;   // that the cuts could leave
  std::uint64_t worlds = 0;  // of them that differ
  std::uint64_t launches = 0;
};

class CrashSweep {
 public:
  explicit CrashSweep(const Scenario& scenario) : scenario_(scenario) {}

  // The findings; empty is what it should be.
  std::string run() {
    killEverywhere();
    for (const World& once : crashesFrom(nullptr)) {
      settle(once);
      if (!thorough) continue;
      for (const World& twice : crashesFrom(&once)) settle(twice);
      if (!findings_.empty()) break;  // one is enough to look into
    }
    return findings_;
  }
  const Counts& counts() const { return counts_; }

 private:
  // The launcher alone is killed; the machine notices what outlives it.
  void killEverywhere() {
    for (std::uint64_t point = 1;; ++point) {
      Life life(scenario_, Life::Disturbed::yes);
      life.machine().killLauncherAtChangePoint(point);
      life.machine().runLauncher();
      ++counts_.launches;
      note(life.findings(), life);
      if (!life.machine().lastRun().killed) return;
    }
  }

  std::vector<World> crashesFrom(const World* from) {
    std::vector<World> found;
    Life life(scenario_, Life::Disturbed::yes, from);
    life.ledger().whenCutOff([&] {
      ++counts_.points;
      const sim::PowerCut cut(life.machine().disk(), life.machine().fileTime());
      for (sim::Disk& disk : cut.images(isNeverLookedAt)) {
        ++counts_.disks;
        if (!life.ledger().isOldOrNew(disk)) note("a reader finds neither the old document nor the new one\n", life);
        World world = life.worldWith(std::move(disk));
        if (seen_.insert(digestOf(world)).second) found.push_back(std::move(world));
      }
    });
    life.machine().runLauncher();
    ++counts_.launches;
    note(life.findings(), life);
    counts_.worlds += found.size();
    return found;
  }

  void settle(const World& world) {
    counts_.launches += 2;
    if (findings_.empty()) findings_ = runUndisturbed(scenario_, world);
  }

  void note(const std::string& finding, Life& life) {
    if (findings_.empty() && !finding.empty()) findings_ = finding + life.machine().trace();
  }

  const Scenario& scenario_;
  std::unordered_set<std::uint64_t> seen_;
  Counts counts_;
  std::string findings_;
};

TEST(crashSweep, keepsEveryPromiseAtEveryPointOfEveryScenarioTwiceOver) {
  const auto begun = std::chrono::steady_clock::now();
  Counts all;
  for (const Scenario& scenario : scenarios()) {
    CrashSweep sweep(scenario);
    EXPECT_EQ(sweep.run(), "") << "scenario: " << scenario.name;
    EXPECT_GT(sweep.counts().points, 0u) << scenario.name;
    all.points += sweep.counts().points;
    all.disks += sweep.counts().disks;
    all.worlds += sweep.counts().worlds;
    all.launches += sweep.counts().launches;
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begun;
  std::printf(
      "figures: crash sweep: %zu scenarios, %llu crash points, %llu disks, %llu of them different, "
      "%llu launches, %.1f s\n",
      scenarios().size(), static_cast<unsigned long long>(all.points), static_cast<unsigned long long>(all.disks),
      static_cast<unsigned long long>(all.worlds), static_cast<unsigned long long>(all.launches), seconds.count());
  EXPECT_GE(scenarios().size(), 40u);
}

}  // namespace
}  // namespace launcher_stub::sweeps
