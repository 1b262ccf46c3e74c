// Every failure of every call, and every outage.
//
// In each scenario each call of the platform fails once, with each error that calls of its kind have, and from each
// call on everything fails for a while: short enough for a retry, for a few of them, and for longer than anybody
// waits. What is left each time lives on undisturbed; disks that the launcher cannot tell apart do so once.
//
// Idle ticks make the same calls thousands of times. Of calls of one kind with the same path between the same two
// changes only the first two and the last one are tried: the one that may still change something, one that is surely a
// repetition, and the one before the next thing happens.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <unordered_set>
#include <utility>
#include <vector>

#include "tests/sweeps/world.h"

namespace launcher_stub::sweeps {
namespace {

using sim::Call;
using sim::Outage;

// One call of an undisturbed run.
struct Place {
  std::uint64_t number = 0;  // from 1
  Call call{};
  std::wstring path;
  std::uint64_t time = 0;  // ms
};

struct Trouble {
  std::uint32_t code = 0;      // of the one call that fails; 0: an outage
  std::uint64_t outageMs = 0;  // from this call on
  Outage outage = Outage::everything;
};

struct Counts {
  std::uint64_t tried = 0;    // places
  std::uint64_t skipped = 0;  // as repetitions
  std::uint64_t errors = 0;
  std::uint64_t outages = 0;
  std::uint64_t launches = 0;
  std::uint64_t worlds = 0;
};

// The calls of an undisturbed run that are worth a try, in their order.
class Places {
 public:
  explicit Places(const Scenario& scenario) {
    Life life(scenario, Life::Disturbed::yes);
    const std::uint64_t before = life.machine().calls();
    life.ledger().whenCalled([&](Call call, std::wstring_view path) {
      if (sim::errorsOf(call).empty()) return;
      note({life.machine().calls() - before, call, std::wstring(path), life.machine().now()},
           life.machine().changePoints());
    });
    life.machine().runLauncher();
    for (const auto& [signature, last] : last_) {
      if (last.first > mostRepetitions) places_.emplace(last.second.number, last.second);
    }
  }
  const std::map<std::uint64_t, Place>& all() const { return places_; }
  std::uint64_t skipped() const { return seen_ - places_.size(); }

 private:
  static constexpr int mostRepetitions = 2;

  void note(const Place& place, std::uint64_t changePoints) {
    ++seen_;
    auto& [count, last] = last_[{place.call, place.path, changePoints}];
    if (++count <= mostRepetitions) places_.emplace(place.number, place);
    last = place;
  }

  std::map<std::tuple<Call, std::wstring, std::uint64_t>, std::pair<int, Place>> last_;
  std::map<std::uint64_t, Place> places_;  // by number
  std::uint64_t seen_ = 0;
};

class FailureSweep {
 public:
  explicit FailureSweep(const Scenario& scenario) : scenario_(scenario) {}

  // The findings; empty is what it should be.
  std::string run() {
    const Places places(scenario_);
    counts_.skipped += places.skipped();
    for (const auto& [number, place] : places.all()) {
      ++counts_.tried;
      failOnce(place);
      failForAWhile(place);
      if (!findings_.empty()) break;  // one is enough to look into
    }
    return findings_;
  }
  const Counts& counts() const { return counts_; }
  const std::set<std::string>& reached() const { return reached_; }

 private:
  void failOnce(const Place& place) {
    for (const std::uint32_t code : sim::errorsOf(place.call)) {
      ++counts_.errors;
      live(place, {code});
    }
  }

  void failForAWhile(const Place& place) {
    for (const Outage outage : {Outage::everything, Outage::files}) {
      if (outage == Outage::files && !sim::isOfFiles(place.call)) continue;
      for (const std::uint64_t ms : {600u, 4'000u, 35'000u}) {
        ++counts_.outages;
        // A run that has not seen the end of the outage is the same in a longer one.
        if (live(place, {0, ms, outage}) < place.time + ms) break;
      }
    }
  }

  // One run.
  struct Lived {
    std::string wrong;  // with its trace, where that is wanted and anything is wrong
    World left;
    std::uint64_t endedAt = 0;  // ms
  };

  // The time at which the run was over.
  std::uint64_t live(const Place& place, const Trouble& trouble) {
    const Lived lived = launch(place, trouble, false);
    std::string wrong = lived.wrong;
    if (wrong.empty() && seen_.insert(digestOf(lived.left)).second) {
      ++counts_.worlds;
      counts_.launches += 2;
      wrong = runUndisturbed(scenario_, lived.left);
    }
    if (!wrong.empty() && findings_.empty()) findings_ = wrong + "it began with\n" + launch(place, trouble, true).wrong;
    return lived.endedAt;
  }

  Lived launch(const Place& place, const Trouble& trouble, bool traced) {
    Life life(scenario_, Life::Disturbed::yes);
    sim::SimOs& machine = life.machine();
    machine.setTracing(traced);
    if (trouble.code != 0) {
      machine.failCallNumber(place.number, trouble.code);
    } else {
      machine.failAllFromCall(place.number, trouble.outageMs, trouble.outage);
    }
    machine.runLauncher();
    ++counts_.launches;
    reached_.merge(life.ledger().takeReached());
    Lived lived;
    lived.endedAt = machine.now();
    lived.wrong = life.findings();
    if (!life.ledger().isOldOrNew(machine.disk()))
      lived.wrong += "the disk holds neither the old document nor the new\n";
    if (traced) lived.wrong += describe(place, trouble) + machine.trace();
    lived.left = life.worldWith(std::move(machine.disk()));
    return lived;
  }

  static std::string describe(const Place& place, const Trouble& trouble) {
    const std::string what = trouble.code != 0 ? "error " + std::to_string(trouble.code)
                             : trouble.outage == Outage::files
                                 ? "files fail for " + std::to_string(trouble.outageMs) + " ms"
                                 : "everything fails for " + std::to_string(trouble.outageMs) + " ms";
    return "call " + std::to_string(place.number) + ", " + std::string(sim::callName(place.call)) + ": " + what + "\n";
  }

  const Scenario& scenario_;
  std::unordered_set<std::uint64_t> seen_;
  Counts counts_;
  std::set<std::string> reached_;
  std::string findings_;
};

// Where the failures must have led at least once.
constexpr const char* toBeReached[] = {"ended by an exception",
                                       "failed before the first start",
                                       "given up after 30 s of failed writes",
                                       "state lock timeout",
                                       "no runnable runtime",
                                       "another launcher holds the lease",
                                       "tree could not be ended",
                                       "recovery",
                                       "line: launch transition write failed",
                                       "line: spawn failure transition write failed",
                                       "line: exit transition write failed",
                                       "line: tick metadata write failed",
                                       "line: cannot prune old attempt: ",
                                       "line: cannot duplicate the launch lease: Win32 error ",
                                       "line: cannot build the handle list: Win32 error ",
                                       "line: cannot create child job"};

TEST(failureSweep, keepsEveryPromiseWhereverACallFailsOnceOrEverythingForAWhile) {
  const auto begun = std::chrono::steady_clock::now();
  Counts all;
  std::set<std::string> reached;
  for (const Scenario& scenario : scenarios()) {
    FailureSweep sweep(scenario);
    EXPECT_EQ(sweep.run(), "") << "scenario: " << scenario.name;
    EXPECT_GT(sweep.counts().errors, 0u) << scenario.name;
    all.tried += sweep.counts().tried;
    all.skipped += sweep.counts().skipped;
    all.errors += sweep.counts().errors;
    all.outages += sweep.counts().outages;
    all.launches += sweep.counts().launches;
    all.worlds += sweep.counts().worlds;
    reached.insert(sweep.reached().begin(), sweep.reached().end());
  }
  for (const char* one : toBeReached) EXPECT_TRUE(reached.contains(one)) << one;
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begun;
  std::printf(
      "figures: failure sweep: %zu scenarios, %llu calls tried, %llu skipped as repetitions, %llu errors, "
      "%llu outages, %llu launches, %llu different worlds, %.1f s\n",
      scenarios().size(), static_cast<unsigned long long>(all.tried), static_cast<unsigned long long>(all.skipped),
      static_cast<unsigned long long>(all.errors), static_cast<unsigned long long>(all.outages),
      static_cast<unsigned long long>(all.launches), static_cast<unsigned long long>(all.worlds), seconds.count());
}

}  // namespace
}  // namespace launcher_stub::sweeps
