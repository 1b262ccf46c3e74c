// A second launcher, started in the very moment of each call of the first one.
//
// While the first one holds the lease the second one ends at once, silently, with 0, and changes nothing. Before and
// after that it lives a whole life, and the first one has to cope with what it left.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/sweeps/effort.h"
#include "tests/sweeps/world.h"

namespace launcher_stub::sweeps {
namespace {

using sim::RunOutcome;
using sim::SimOs;

// Starts the second launcher at the first one's call with this number.
class SecondAtCall {
 public:
  SecondAtCall(Life& life, std::uint64_t number) : life_(life), number_(number) {
    life_.ledger().whenCalled([this](sim::Call, std::wstring_view) { called(); });
  }
  bool happened() const { return outcome_.has_value(); }
  const RunOutcome& outcome() const { return *outcome_; }
  bool leaseWasHeld() const { return leaseWasHeld_; }
  bool diskChanged() const { return diskChanged_; }

 private:
  void called() {
    if (happened() || inside_ || !life_.machine().launcherRuns() || ++calls_ != number_) return;
    inside_ = true;
    leaseWasHeld_ = life_.machine().launcherHolds(L"launch.lock");
    const sim::Disk before = life_.machine().disk();
    outcome_ = life_.machine().runSecondLauncher();
    diskChanged_ = !(life_.machine().disk().nodes() == before.nodes());
    inside_ = false;
  }

  Life& life_;
  std::uint64_t number_;
  std::uint64_t calls_ = 0;
  bool inside_ = false;
  bool leaseWasHeld_ = false;
  bool diskChanged_ = false;
  std::optional<RunOutcome> outcome_;
};

TEST(secondLauncher, isSilentWhileTheLeaseIsHeldAndLivesAWholeLifeOtherwise) {
  int silent = 0;
  int whole = 0;
  for (const Scenario& scenario : scenarios()) {
    // From here on it is idle ticks, or the same once more for the next slot.
    constexpr std::uint64_t mostCalls = 160;
    for (std::uint64_t number = 1; number <= mostCalls; number += thorough ? 1 : 7) {
      Life life(scenario, Life::Disturbed::yes);
      SecondAtCall second(life, number);
      life.machine().runLauncher();
      const std::string wrong = life.findings();

      ASSERT_EQ(wrong, "") << scenario.name << ", second launcher at call " << number << "\n" << life.machine().trace();
      if (!second.happened()) break;
      if (!second.leaseWasHeld()) {
        ++whole;
        continue;
      }
      ++silent;
      ASSERT_EQ(second.outcome().exitCode, 0) << scenario.name << ", call " << number;
      ASSERT_EQ(second.outcome().startedAt, second.outcome().processEndedAt) << scenario.name << ", call " << number;
      ASSERT_FALSE(second.diskChanged()) << scenario.name << ", call " << number;
    }
  }
  std::printf("figures: second launcher: %d at a held lease, %d whole lives\n", silent, whole);
  EXPECT_GT(silent, 500);
  EXPECT_GT(whole, 100);
}

}  // namespace
}  // namespace launcher_stub::sweeps
