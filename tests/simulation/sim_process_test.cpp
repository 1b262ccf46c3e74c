// The simulated processes: starts, jobs, scripts, ends, and the life of the launcher's own process.
#include <gtest/gtest.h>

#include "os/child_process.h"
#include "os/clock.h"
#include "os/durable_file.h"
#include "os/error_box.h"
#include "os/lock_file.h"
#include "os/random.h"
#include "os/text.h"
#include "os/this_process.h"
#include "tests/simulation/sim_os.h"

namespace launcher_stub::sim {
namespace {

// What a launch holds around a start.
struct Launch {
  explicit Launch(SimOs& machine) : sim(machine) {
    sim.makeDirectory(sim.statePath(L"attempts\\n"));
    sim.writeFile(attempt + L"\\boot-v1.json", R"({"schemaVersion":1,"slot":"aaaa","nonce":"nonce-123"})");
    EXPECT_TRUE(os::openLockFile(lease, sim.statePath(L"launch.lock"), os::LockWait::none));
  }

  bool start(const std::string& slot) {
    const std::wstring executable = sim.slotPath(slot, L"entry-v1.exe");
    const std::wstring install = sim.installDirectory();
    const std::wstring root = sim.stateRoot();
    return os::startChild(child, {executable, arguments, install, root, attempt, lease.handle.get()});
  }

  SimOs& sim;
  std::wstring attempt = sim.statePath(L"attempts\\n");
  std::vector<std::wstring> arguments = {L"one", L"two words"};
  os::LockFile lease;
  os::ChildProcess child;
};

struct Exit {
  bool seen = false;
  std::uint32_t code = 0;
  bool clean = false;
};
Exit poll(os::ChildProcess& child) {
  Exit exit;
  exit.seen = os::pollExit(child, exit.code, exit.clean);
  return exit;
}

TEST(simulatedChild, isRecordedWithArgumentsEnvironmentAndLease) {
  SimOs sim;
  sim.install("aaaa", Runtime::silent());
  sim.setVariable(L"quorvex_boot_lease", L"7");
  Launch launch(sim);

  ASSERT_TRUE(launch.start("aaaa"));

  ASSERT_EQ(sim.started(), std::vector<std::string>{"aaaa"});
  const Start& start = sim.starts()[0];
  EXPECT_EQ(start.arguments, launch.arguments);
  EXPECT_TRUE(start.commandLine.ends_with(L"\"one\" \"two words\""));
  EXPECT_EQ(start.variable(L"QUORVEX_BOOT_ATTEMPT_DIR"), launch.attempt);
  EXPECT_EQ(start.variable(L"QUORVEX_BOOT_LEASE"), std::to_wstring(start.leaseHandle));
  EXPECT_EQ(start.variable(L"quorvex_boot_lease"), L"");
  EXPECT_TRUE(start.leaseInherited);
  EXPECT_EQ(start.time, 300'000u);
}

TEST(simulatedChild, endsByItsScriptAndIsReportedOnce) {
  SimOs sim;
  sim.install("aaaa", Runtime::crashing(0xC0000005));
  Launch launch(sim);
  ASSERT_TRUE(launch.start("aaaa"));

  EXPECT_FALSE(poll(launch.child).seen);
  os::sleepMilliseconds(49);
  EXPECT_FALSE(poll(launch.child).seen);
  os::sleepMilliseconds(1);
  const Exit exit = poll(launch.child);
  EXPECT_TRUE(exit.seen);
  EXPECT_EQ(exit.code, 0xC0000005u);
  EXPECT_FALSE(exit.clean);
  EXPECT_FALSE(poll(launch.child).seen);
}

TEST(simulatedChild, variesByStartNumber) {
  SimOs sim;
  sim.install("aaaa", {Runtime::crashing(5), Runtime().exitsAt(10, 0)});
  Launch launch(sim);
  for (const std::uint32_t expected : {5u, 0u, 0u}) {
    os::resetChild(launch.child);
    ASSERT_TRUE(launch.start("aaaa"));
    sim.advance(1'000);
    EXPECT_EQ(poll(launch.child).code, expected);
  }
}

TEST(simulatedChild, writesMarkersInEveryCondition) {
  SimOs sim;
  sim.install("aaaa", Runtime()
                          .readyAt(10)
                          .healthyAt(20, Form::otherNonce)
                          .requestsRestartAt(30, Form::half)
                          .requestsUpdateAt(40, "request-1", "bbbb", 7));
  Launch launch(sim);
  ASSERT_TRUE(launch.start("aaaa"));
  sim.advance(1'000);

  const std::string right = R"({"schemaVersion":1,"slot":"aaaa","nonce":"nonce-123"})";
  EXPECT_EQ(sim.read(launch.attempt + L"\\ready-v1"), right);
  EXPECT_EQ(sim.read(launch.attempt + L"\\healthy-v1"), R"({"schemaVersion":1,"slot":"aaaa","nonce":"nonce-120"})");
  EXPECT_EQ(sim.read(launch.attempt + L"\\restart-v1.json"), right.substr(0, right.size() / 2));
  EXPECT_EQ(sim.read(sim.statePath(L"pending-v1.json")),
            R"({"schemaVersion":1,"requestId":"request-1","expectedGeneration":7,"candidate":"bbbb"})");
}

TEST(simulatedStart, saysWhyItFailedAndLeavesNothing) {
  struct Case {
    Call step;
    std::string line;
  };
  SimOs naming;  // only for the path in the message
  const std::string path = os::toUtf8(naming.slotPath("aaaa", L"entry-v1.exe"));
  const Case cases[] = {
      {Call::duplicateLease, "cannot duplicate the launch lease: Win32 error 8"},
      {Call::buildHandleList, "cannot build the handle list: Win32 error 8"},
      {Call::readEnvironment, "cannot start " + path + ": Win32 error 8"},
      {Call::createProcess, "cannot start " + path + ": Win32 error 8"},
      {Call::createJob, "cannot create child job"},
      {Call::limitJob, "cannot create child job"},
      {Call::assignToJob, "cannot create child job"},
      {Call::resumeThread, "cannot create child job"},
  };
  naming.install("aaaa", Runtime::silent());
  Launch launch(naming);
  for (const Case& c : cases) {
    SCOPED_TRACE(callName(c.step));
    naming.fail(c.step, L"", 8).times(1);
    EXPECT_FALSE(launch.start("aaaa"));
    EXPECT_EQ(naming.lines().back(), c.line);
    EXPECT_EQ(naming.livingProcesses(), 0);
    EXPECT_EQ(launch.child.job, nullptr);
  }
}

TEST(simulatedStart, ofAMissingExecutableGivesCodeTwo) {
  SimOs sim;
  sim.install("aaaa", Runtime::silent());
  sim.remove(sim.slotPath("aaaa", L"entry-v1.exe"));
  Launch launch(sim);

  EXPECT_FALSE(launch.start("aaaa"));
  EXPECT_TRUE(sim.lines().back().ends_with("entry-v1.exe: Win32 error 2"));
  EXPECT_EQ(sim.count(Call::createJob), 0);
}

TEST(simulatedJob, countsGrandchildrenAndEndsThem) {
  SimOs sim;
  sim.install("aaaa", Runtime().startsGrandchildAt(5).exitsAt(10, 0));
  Launch launch(sim);
  ASSERT_TRUE(launch.start("aaaa"));
  sim.advance(20);

  EXPECT_TRUE(poll(launch.child).seen);
  EXPECT_TRUE(os::jobHasActiveProcesses(launch.child));
  EXPECT_TRUE(os::endProcessTree(launch.child));
  EXPECT_FALSE(os::jobHasActiveProcesses(launch.child));
  EXPECT_EQ(sim.count(Call::terminateJob), 1);
}

TEST(simulatedJob, isEndedWithinOneBudgetOfThirtySeconds) {
  SimOs sim(1'000);
  sim.install("aaaa", Runtime().survivesTermination(40'000));
  Launch launch(sim);
  ASSERT_TRUE(launch.start("aaaa"));

  EXPECT_FALSE(os::endProcessTree(launch.child));
  EXPECT_EQ(sim.now(), 31'000u);
  EXPECT_TRUE(launch.child.waitFailed);
  EXPECT_FALSE(os::endProcessTree(launch.child));
  EXPECT_EQ(sim.now(), 31'000u);
  sim.advance(10'000);
  EXPECT_TRUE(os::endProcessTree(launch.child));
}

TEST(simulatedJob, queriesAndTerminationsCanFail) {
  SimOs sim;
  sim.install("aaaa", Runtime::silent());
  Launch launch(sim);
  ASSERT_TRUE(launch.start("aaaa"));

  sim.fail(Call::queryJob).times(1);
  EXPECT_TRUE(os::jobHasActiveProcesses(launch.child));
  EXPECT_TRUE(launch.child.waitFailed);
  sim.fail(Call::terminateJob).times(1);
  EXPECT_FALSE(os::endProcessTree(launch.child));
  EXPECT_EQ(sim.livingProcesses(), 1);
  sim.fail(Call::pollExit).times(1);
  launch.child.waitFailed = false;
  EXPECT_FALSE(poll(launch.child).seen);
  EXPECT_TRUE(launch.child.waitFailed);
}

TEST(simulatedJob, takesItsProcessesAlongWhenItIsClosed) {
  SimOs sim;
  sim.install("aaaa", Runtime::silent());
  Launch launch(sim);
  ASSERT_TRUE(launch.start("aaaa"));
  sim.advance(10);

  os::resetChild(launch.child);
  EXPECT_EQ(sim.livingProcesses(), 0);
}

TEST(simulatedLease, isHeldByTheChildToo) {
  SimOs sim;
  sim.install("aaaa", Runtime::silent());
  Launch launch(sim);
  ASSERT_TRUE(launch.start("aaaa"));
  os::closeLockFile(launch.lease);

  os::LockFile second;
  EXPECT_FALSE(os::openLockFile(second, sim.statePath(L"launch.lock"), os::LockWait::none));
  sim.endRuntime(0);
  EXPECT_TRUE(os::openLockFile(second, sim.statePath(L"launch.lock"), os::LockWait::none));
}

TEST(simulatedLauncher, thatIsKilledTakesItsTreeAlong) {
  SimOs sim;
  sim.install("aaaa", Runtime().startsGrandchildAt(5));
  sim.killLauncherAt(sim.now() + 1'000);

  sim.runProcess([&]() -> int {
    Launch launch(sim);
    EXPECT_TRUE(launch.start("aaaa"));
    for (;;) os::sleepMilliseconds(250);
  });

  EXPECT_TRUE(sim.lastRun().killed);
  EXPECT_EQ(sim.lastRun().processEndedAt, 301'000u);
  EXPECT_EQ(sim.livingProcesses(), 0);
  EXPECT_EQ(sim.openFiles().openCount(), 0);
}

TEST(simulatedLauncher, canBeKilledAtEveryCallAndChange) {
  // Between two calls of one start there is always exactly one of two worlds: a whole tree under the launcher, or none.
  for (std::uint64_t point = 1; point <= 60; ++point) {
    SCOPED_TRACE(point);
    SimOs sim;
    sim.install("aaaa", Runtime::silent());
    if (point % 2 == 0) {
      sim.killLauncherAtCall(point / 2);
    } else {
      sim.killLauncherAtChangePoint(point / 2 + 1);
    }
    sim.runProcess([&] {
      os::containThisProcess();
      Launch launch(sim);
      EXPECT_TRUE(launch.start("aaaa"));
      return 0;
    });
    EXPECT_EQ(sim.livingProcesses(), 0);
    EXPECT_EQ(sim.openFiles().openCount(), 0);
  }
}

TEST(simulatedLauncher, endsWithThreeAfterAnUncaughtException) {
  SimOs sim;
  sim.fail(Call::random);

  EXPECT_EQ(sim.runProcess([] { return static_cast<int>(os::randomHexDigits().size()); }), 3);
  EXPECT_EQ(sim.lastRun().uncaught, "no randomness");
}

TEST(simulatedBox, keepsTheProcessAliveUntilItIsClosed) {
  SimOs sim;
  sim.setBoxStaysOpenFor(45'000);

  EXPECT_EQ(sim.runProcess([] {
    os::showError("first");
    os::showError("second");
    return 1;
  }),
            1);

  ASSERT_EQ(sim.boxes().size(), 1u);
  EXPECT_EQ(sim.boxes()[0].text, "first");
  EXPECT_EQ(sim.lines(), (std::vector<std::string>{"first", "second"}));
  EXPECT_EQ(sim.lastRun().returnedAt, 300'000u);
  EXPECT_EQ(sim.lastRun().processEndedAt, 345'000u);
}

}  // namespace
}  // namespace launcher_stub::sim
