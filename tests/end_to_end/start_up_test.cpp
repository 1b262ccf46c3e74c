// From the start of the process to the first decision.

#include <gtest/gtest.h>

#include "tests/end_to_end/harness.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Slots = std::vector<std::string>;
using Lines = std::vector<std::string>;

TEST(launchLease, makesASecondLauncherEndSilentlyWithZero) {
  Installation installation;
  installation.installSeed(staysForever);
  Launcher first = installation.start();
  ASSERT_TRUE(installation.startsWithin(1));

  Launcher second = installation.start();

  EXPECT_EQ(second.exitCode(), 0U);
  EXPECT_EQ(second.lines(), Lines{});
  EXPECT_TRUE(first.isRunning());
  EXPECT_EQ(installation.startedSlots(), Slots{"seed"});
}

TEST(launchLease, isFreeAgainAfterTheEndOfTheRun) {
  Installation installation;
  installation.installSeed(endsTheRun(0));
  EXPECT_EQ(installation.start().exitCode(), 0U);

  EXPECT_EQ(installation.start().exitCode(), 0U);

  EXPECT_EQ(installation.startedSlots(), (Slots{"seed", "seed"}));
}

TEST(stateLock, heldByAnotherProcessEndsTheRunAfterFiveSecondsWithoutABox) {
  Installation installation;
  installation.installSeed(endsTheRun(0));
  createDirectories(installation.stateRoot());
  const HeldFile held(installation.inRoot(L"state.lock"));
  const std::uint64_t before = milliseconds();

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 1U);  // a box would keep the process
  EXPECT_GE(milliseconds() - before, 5'000U);
  EXPECT_EQ(launcher.lines(), Lines{"state lock timeout"});
  EXPECT_EQ(installation.startedSlots(), Slots{});
}

TEST(stateLock, isWaitedFor) {
  Installation installation;
  installation.installSeed(endsTheRun(0));
  createDirectories(installation.stateRoot());
  HeldFile held(installation.inRoot(L"state.lock"));
  Launcher launcher = installation.start();
  const bool leaseTaken = waitUntil([&] { return isPresent(installation.inRoot(L"launch.lock")); });
  ASSERT_TRUE(leaseTaken);  // the state lock is what comes next

  held.letGo();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(launcher.lines(), Lines{});
  EXPECT_EQ(installation.startedSlots(), Slots{"seed"});
}

TEST(stateRoot, isFoundByLocalAppDataWhereTheBootstrapNamesNone) {
  Installation installation(RootFrom::localAppData);
  installation.installSeed("report\n" + endsTheRun(0));

  EXPECT_EQ(installation.start().exitCode(), 0U);

  EXPECT_EQ(installation.state(), StateText{.generation = 1}.json());
  EXPECT_EQ(installation.log("seed").all("variable").front(),
            "QUORVEX_BOOT_STATE_ROOT=" + toUtf8(installation.scratch()) + "\\Quorvex/tessellary/native");
}

TEST(stateRoot, withAnotherAccessListIsResetWithOneNotice) {
  Installation installation;
  installation.installSeed(endsTheRun(0));
  createDirectories(installation.inRoot(L"attempts"));  // two directories with a plain list
  createDirectories(installation.inRoot(L"slots"));

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(launcher.rawErrors(), "reset state root DACL to current user and system principals\n");
}

// A bootstrap of a later version is not understood, except for the place of the state root.
TEST(newerBootstrap, keepsItsStateRootAndLeavesUpdatesAlone) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", endsTheRun(0));
  installation.installSlot("bbbb", fails);
  installation.writeBootstrap(installation.bootstrapText(2));
  const std::string state = StateText{.generation = 3, .active = "aaaa", .candidate = "bbbb"}.json();
  installation.writeState(state);
  installation.writePending(pendingText("bbbb", "request-1", 3));

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(installation.startedSlots(), Slots{"aaaa"});
  EXPECT_EQ(installation.state(), state);
  EXPECT_TRUE(installation.hasPending());
  EXPECT_EQ(launcher.lines(), Lines{});
}

TEST(newerBootstrap, withoutAStateRootFallsBackToLocalAppData) {
  Installation installation(RootFrom::localAppData);
  installation.installSeed(endsTheRun(0));
  installation.writeBootstrap(installation.bootstrapText(2));

  EXPECT_EQ(installation.start().exitCode(), 0U);

  EXPECT_EQ(installation.startedSlots(), Slots{"seed"});
  EXPECT_EQ(installation.state(), StateText{.generation = 1}.json());
}

}  // namespace
}  // namespace end_to_end
