// Faults by the number of a call, outages, observers, and a second launcher in the middle of the first one's calls.
#include <gtest/gtest.h>

#include "os/durable_file.h"
#include "os/file_status.h"
#include "os/lock_file.h"
#include "os/log.h"
#include "os/random.h"
#include "tests/simulation/sim_inside.h"
#include "tests/simulation/sim_os.h"

namespace launcher_stub::sim {
namespace {

constexpr const wchar_t* file = L"C:\\Data\\file";

TEST(faultByNumber, strikesThatCallAndNoOther) {
  SimOs sim;
  sim.writeFile(file, "text");
  sim.failCallNumber(2, win32::accessDenied);

  EXPECT_EQ(os::pathStatus(file), os::PathStatus::other);
  EXPECT_EQ(os::pathStatus(file), os::PathStatus::unknown);
  EXPECT_EQ(os::pathStatus(file), os::PathStatus::other);
}

TEST(outage, strikesEveryCallForItsTime) {
  SimOs sim;
  sim.writeFile(file, "text");
  sim.failAllFromCall(2, 1'000);

  EXPECT_EQ(os::pathStatus(file), os::PathStatus::other);
  EXPECT_EQ(os::pathStatus(file), os::PathStatus::unknown);
  sim.advance(999);
  EXPECT_EQ(os::pathStatus(file), os::PathStatus::unknown);
  sim.advance(1);
  EXPECT_EQ(os::pathStatus(file), os::PathStatus::other);
}

TEST(outage, ofFilesLeavesChanceAndTheReportsAlone) {
  SimOs sim;
  sim.writeFile(file, "text");
  sim.failAllFromCall(1, forever, Outage::files);

  os::logLine("heard");
  EXPECT_EQ(os::randomHexDigits().size(), 32u);
  EXPECT_EQ(os::pathStatus(file), os::PathStatus::unknown);
  EXPECT_EQ(sim.lines(), std::vector<std::string>{"heard"});
}

TEST(outage, endsWithTheFaults) {
  SimOs sim;
  sim.writeFile(file, "text");
  sim.failAllFromCall(1, forever);
  sim.clearFaults();

  EXPECT_EQ(os::pathStatus(file), os::PathStatus::other);
}

TEST(errorsOf, namesErrorsForWhateverIsNoSumOfOtherCalls) {
  EXPECT_EQ(errorsOf(Call::readFile).size(), 3u);
  EXPECT_EQ(errorsOf(Call::createTemporary).front(), win32::diskFull);
  EXPECT_TRUE(errorsOf(Call::replace).empty());
  EXPECT_TRUE(errorsOf(Call::sleep).empty());
}

TEST(insidePlatform, isTrueInItsBodiesAndNotInTheCodeUnderTest) {
  SimOs sim;
  bool inCall = false;
  bool inSequence = true;
  sim.before(Call::status, L"", [&] { inCall = insidePlatform(); });

  sim.runProcess([&] {
    inSequence = insidePlatform();
    (void)os::pathStatus(file);  // for its hook alone
    return 0;
  });

  EXPECT_TRUE(inCall);
  EXPECT_FALSE(inSequence);
  EXPECT_FALSE(insidePlatform());
}

// The second launcher starts when the first one's runtime has been running for a second.
TEST(secondLauncherInTheSimulation, findsTheLeaseTakenAndLeavesTheFirstOneAlone) {
  SimOs sim;
  sim.installSeed(Runtime().readyAt(100).exitsAt(2'000, 7));
  RunOutcome second;
  sim.after(1'000, [&] { second = sim.runSecondLauncher(); });

  EXPECT_EQ(sim.runLauncher(), 7) << sim.trace();

  EXPECT_EQ(second.exitCode, 0);
  EXPECT_EQ(second.startedAt, second.processEndedAt);
  EXPECT_EQ(sim.starts().size(), 1u);
  EXPECT_EQ(sim.lastRun().exitCode, 7);
}

TEST(secondLauncherInTheSimulation, livesAWholeLifeBeforeTheFirstOneAsksForTheLease) {
  SimOs sim;
  sim.installSeed(Runtime().readyAt(100).exitsAt(2'000, 7));
  RunOutcome second;
  sim.before(Call::openLock, L"launch.lock", [&] { second = sim.runSecondLauncher(); });

  EXPECT_EQ(sim.runLauncher(), 7) << sim.trace();

  EXPECT_EQ(second.exitCode, 7);
  ASSERT_EQ(sim.starts().size(), 2u);
  EXPECT_EQ(sim.starts()[0].run, 2);
  EXPECT_EQ(sim.starts()[1].run, 1);
}

TEST(secondLauncherInTheSimulation, mayBeKilledWithoutTheFirstOne) {
  SimOs sim;
  sim.installSeed(Runtime().readyAt(100).exitsAt(2'000, 7));
  sim.before(Call::openLock, L"launch.lock", [&] {
    sim.after(500, [&] { sim.killLauncherNow(); });
    EXPECT_TRUE(sim.runSecondLauncher().killed);
  });

  EXPECT_EQ(sim.runLauncher(), 7) << sim.trace();

  EXPECT_FALSE(sim.lastRun().killed);
}

TEST(misuseInALaunch, ofStateFilesWithoutTheLeaseIsNoticed) {
  SimOs sim;
  sim.makeDirectory(sim.stateRoot());
  sim.runProcess([&sim] {
    sim.process().runsLaunchSequence = true;
    os::LockFile lock;
    EXPECT_TRUE(os::openLockFile(lock, sim.statePath(L"state.lock"), os::LockWait::none));
    EXPECT_TRUE(os::replaceFileDurably(sim.statePath(L"boot-v1.json"), "{}"));
    return 0;
  });

  const std::vector<std::string> problems = sim.takeProblems();
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_TRUE(problems[0].ends_with("boot-v1.json without launch.lock")) << problems[0];
}

// The document is written with both locks held; whether the state in force is safe in the previous copy differs.
TEST(misuseInALaunch, ofRaisingTheGenerationBeforeThePreviousCopyIsSafeIsNoticed) {
  struct Case {
    const char* why;
    std::optional<BootState> previous;
    std::uint64_t generation;
    bool noticed;
  };
  const BootState inForce{.generation = 5, .active = "aaaa"};
  const BootState older{.generation = 4};
  const Case cases[] = {
      {"no previous copy", std::nullopt, 6, true},
      {"an older previous copy", older, 6, true},
      {"the state in force is the previous copy", inForce, 6, false},
      {"the generation stays", older, 5, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.writeBootState(inForce);
    if (c.previous) sim.writePreviousState(*c.previous);
    sim.runProcess([&] {
      sim.process().runsLaunchSequence = true;
      os::LockFile lease;
      os::LockFile lock;
      EXPECT_TRUE(os::openLockFile(lease, sim.statePath(L"launch.lock"), os::LockWait::none));
      EXPECT_TRUE(os::openLockFile(lock, sim.statePath(L"state.lock"), os::LockWait::none));
      const BootState next{.generation = c.generation, .active = "bbbb"};
      EXPECT_TRUE(os::replaceFileDurably(sim.statePath(L"boot-v1.json"), bootStateDocument(next)));
      return 0;
    });
    EXPECT_EQ(!sim.takeProblems().empty(), c.noticed);
  }
}

TEST(misuseInALaunch, ofAChildOutsideItsJobIsNoticed) {
  SimOs sim;
  sim.installSeed(Runtime::silent());
  Start start;
  start.slot = "seed";
  start.executable = sim.slotPath("seed", L"entry-v1.exe");
  Process& child = sim.createProcess(start, 0);
  sim.resume(child.pid);

  const std::vector<std::string> problems = sim.takeProblems();
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_TRUE(problems[0].ends_with("a child runs outside its job")) << problems[0];
}

}  // namespace
}  // namespace launcher_stub::sim
