// Nothing that the launcher has started lives on without it.

#include <gtest/gtest.h>

#include "tests/end_to_end/breakpoints.h"
#include "tests/end_to_end/harness.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Slots = std::vector<std::string>;

std::uint32_t idIn(const std::string& text) { return static_cast<std::uint32_t>(std::stoul(text)); }

// The lease can be taken again, so the next launcher will not take itself for a second one.
bool leaseIsFree(const Installation& installation) {
  return waitUntil([&] { return openExclusively(installation.inRoot(L"launch.lock")) != nullptr; });
}

TEST(killedLauncher, takesRuntimeAndGrandchildrenWithIt) {
  Installation installation;
  installation.installSeed("grandchild 600000\ngrandchild 600000\n" + staysForever);
  Launcher launcher = installation.start();
  ASSERT_TRUE(waitUntil([&] { return installation.log("seed").all("grandchild-running").size() == 2; }));
  std::vector<ProcessWatch> tree;
  tree.emplace_back(installation.starts().front().processId);
  for (const std::string& id : installation.log("seed").all("grandchild")) tree.emplace_back(idIn(id));
  for (const ProcessWatch& process : tree) ASSERT_TRUE(process.isRunning());

  launcher.kill();

  for (const ProcessWatch& process : tree) EXPECT_TRUE(process.endsWithin());
  EXPECT_TRUE(leaseIsFree(installation));
  EXPECT_FALSE(installation.log("seed").has("grandchild-ended"));  // not by themselves
}

TEST(killedLauncher, leavesAStateFromWhichTheNextOneGoesOn) {
  Installation installation;
  installation.installSeed("[start 1]\n" + staysForever + "[start 2]\n" + endsTheRun(0));
  {
    Launcher launcher = installation.start();
    ASSERT_TRUE(installation.startsWithin(1));
    launcher.kill();
    ASSERT_TRUE(leaseIsFree(installation));
  }

  EXPECT_EQ(installation.start().exitCode(), 0U);

  EXPECT_EQ(installation.startedSlots(), (Slots{"seed", "seed"}));
  EXPECT_EQ(installation.state(), StateText{.generation = 1}.json());
}

// The moment at which the child exists, suspended and with the lease in its hands, but not yet in its job.
TEST(killedLauncher, inTheGapBeforeTheJobLeavesNoSuspendedChild) {
  Installation installation;
  installation.installSeed(staysForever);
  Launcher launcher = installation.start({.flags = startForBreakpoints});
  ASSERT_TRUE(runToCalls(launcher.process(), {"CreateProcessW", "AssignProcessToJobObject"}));
  const std::vector<std::uint32_t> children = childrenOf(launcher.process().id());
  ASSERT_EQ(children.size(), 1U);
  const ProcessWatch child(children.front());
  ASSERT_TRUE(child.isRunning());
  ASSERT_EQ(openExclusively(installation.inRoot(L"launch.lock")), nullptr);

  launcher.kill();

  EXPECT_TRUE(child.endsWithin(10'000));
  EXPECT_TRUE(leaseIsFree(installation));
  EXPECT_EQ(installation.startedSlots(), Slots{});  // it never ran
}

TEST(processTree, isEndedBeforeTheNextRuntimeStarts) {
  Installation installation;
  installation.installSeed("hold 1000 " + toUtf8(installation.scratch()) + "\\held\n" + endsTheRun(0));
  installation.installSlot(
      "aaaa", "grandchild 600000 " + toUtf8(installation.scratch()) + "\\held\nwait 60000 finish\nexit 3\n");
  installation.writeState(StateText{.generation = 5, .active = "aaaa"}.json());
  Launcher launcher = installation.start();
  ASSERT_TRUE(installation.logsWithin("aaaa", "grandchild-running"));
  ASSERT_EQ(installation.log("aaaa").one("grandchild-hold"), "yes");
  const ProcessWatch grandchild(idIn(installation.log("aaaa").one("grandchild")));

  installation.writeBeside("aaaa", L"finish");

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_TRUE(grandchild.endsWithin(0));
  EXPECT_EQ(installation.startedSlots(), (Slots{"aaaa", "seed"}));
  EXPECT_FALSE(installation.log("seed").has("failed")) << installation.log("seed").text();  // it got the file
  EXPECT_TRUE(installation.log("seed").has("holding"));
}

TEST(processTree, isEndedAtTheNormalEndOfTheRuntime) {
  Installation installation;
  installation.installSeed("grandchild 600000\nwait 60000 finish\n" + endsTheRun(4));
  Launcher launcher = installation.start();
  ASSERT_TRUE(installation.logsWithin("seed", "grandchild-running"));
  const ProcessWatch grandchild(idIn(installation.log("seed").one("grandchild")));

  installation.writeBeside("seed", L"finish");

  EXPECT_EQ(launcher.exitCode(), 4U);
  EXPECT_TRUE(grandchild.endsWithin(0));
}

}  // namespace
}  // namespace end_to_end
