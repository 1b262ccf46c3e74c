// A durable replacement costs more than all else that a launch does. How many there are is part of the design.
#include <gtest/gtest.h>

#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

// What was done when the first runtime began to run.
struct AtFirstStart : sim::Observer {
  explicit AtFirstStart(SimOs& machine) : sim(machine) { sim.observe(this); }
  ~AtFirstStart() override { sim.observeNoLonger(); }

  void starts(const sim::Start&) override {
    if (started) return;
    started = true;
    replacements = sim.count(Call::replace);
    deletions = sim.count(Call::removeFile);
  }

  SimOs& sim;
  bool started = false;
  int replacements = 0;
  int deletions = 0;
};

void installFirstRun(SimOs& sim) { sim.installSeed(readyAndEnding(1'000)); }

void installPlainStart(SimOs& sim) {
  installTrusted(sim);
  sim.install("aaaa", readyAndEnding(1'000));
}

void installRequest(SimOs& sim) {
  installTrusted(sim);
  sim.install("bbbb", readyAndEnding(1'000));
  sim.writePending("request-1", 5, "bbbb");
}

void installUselessRequest(SimOs& sim) {
  installPlainStart(sim);
  sim.writePending("request-1", 4, "bbbb");
}

void installLaterTry(SimOs& sim) {
  installTrial(sim, readyAndEnding(1'000));
  BootState state = trialState();
  state.attemptCount = 1;
  sim.writeBootState(state);
}

void installCopyAlone(SimOs& sim) {
  installPlainStart(sim);
  sim.remove(sim.statePath(L"boot-v1.json"));
  sim.writePreviousState(storedState(5, "aaaa"));
}

TEST(durableWrites, beforeTheRuntimeRunsAreAsFewAsCanBe) {
  struct Case {
    const char* why;
    void (*install)(SimOs&);
    int replacements;
    int deletions;
  };
  const Case cases[] = {
      {"plain start: the attempt's record", installPlainStart, 1, 0},
      {"first run: the state as well", installFirstRun, 2, 0},
      {"a request taken in: the copy, the state, the record", installRequest, 3, 1},
      {"a request that is only disposed of", installUselessRequest, 1, 1},
      {"a later try: the state with its count, the record", installLaterTry, 2, 0},
      {"recovery: the copy, the state, the record", installCopyAlone, 3, 0},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    c.install(sim);
    AtFirstStart seen(sim);

    sim.runLauncher();

    ASSERT_TRUE(seen.started);
    EXPECT_EQ(seen.replacements, c.replacements);
    EXPECT_EQ(seen.deletions, c.deletions);
  }
}

TEST(durableWrites, ofAPromotionAreTheCopyAndTheState) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());
  int atTheMark = 0;
  sim.after(59'000, [&] { atTheMark = sim.count(Call::replace); });

  sim.runLauncher();

  ASSERT_EQ(sim.bootState()->active, "bbbb");
  EXPECT_EQ(atTheMark, 2) << "of the start";
  EXPECT_EQ(sim.count(Call::replace) - atTheMark, 2);
}

TEST(durableWrites, areNoneInAPlainTick) {
  SimOs sim;
  installTrusted(sim);
  sim.install("aaaa", readyAndEnding(3'600'000));
  int afterTheStart = 0;
  sim.after(1'000, [&] { afterTheStart = sim.count(Call::replace); });

  sim.runLauncher();

  EXPECT_EQ(afterTheStart, 1);
  EXPECT_EQ(sim.count(Call::replace), afterTheStart);
  EXPECT_EQ(sim.count(Call::openLock), 2) << "launch.lock and state.lock of the start; the exit writes nothing";
}

// The files that a tick opens while it waits: one for each marker, and none once it waits for nothing.
TEST(filesOpened, areOneInATickForEachMarkerStillWaitedFor) {
  struct Case {
    const char* why;
    void (*install)(SimOs&, const Runtime&);
    Runtime runtime;
    int eachTick;
  };
  const auto active = [](SimOs& sim, const Runtime& runtime) {
    installTrusted(sim);
    sim.install("aaaa", runtime);
  };
  const Case cases[] = {
      {"an active slot: ready", active, Runtime(), 1},
      {"an active slot that is ready: none", active, Runtime().readyAt(100), 0},
      {"a candidate: ready and healthy", installTrial, Runtime(), 2},
      {"a candidate that is ready: healthy", installTrial, Runtime().readyAt(100), 1},
      {"a candidate that soaks: none", installTrial, Runtime().readyAt(100).healthyAt(100), 0},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    c.install(sim, c.runtime);
    int before = 0;
    int after = 0;
    int asked = 0;
    sim.after(1'100, [&] { before = sim.count(Call::readFile), asked = sim.count(Call::status); });
    sim.after(11'100, [&] { after = sim.count(Call::readFile), asked = sim.count(Call::status) - asked; });
    sim.killLauncherAt(sim.now() + 12'000);

    sim.runLauncher();

    EXPECT_EQ(after - before, 40 * c.eachTick);
    EXPECT_EQ(asked, 0) << "a marker is opened, not asked for first";
  }
}

}  // namespace
}  // namespace launcher_stub
