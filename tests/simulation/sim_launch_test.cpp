// Whole runs of the launch sequence on the simulated machine: that the pieces of the simulation fit together. What the
// launcher has to do in detail is tested beside the launcher.
#include <gtest/gtest.h>

#include "os/durable_file.h"
#include "tests/simulation/sim_os.h"

namespace launcher_stub::sim {
namespace {

using Names = std::vector<std::string>;

BootState stateWith(const std::optional<std::string>& active, const std::optional<std::string>& candidate) {
  BootState state;
  state.generation = 5;
  state.active = active;
  state.candidate = candidate;
  return state;
}

TEST(simulatedLaunch, runsTheSeedAndReturnsItsExitCode) {
  SimOs sim;
  sim.installSeed(Runtime().readyAt(100).exitsAt(5'000, 7));

  EXPECT_EQ(sim.runLauncher(), 7) << sim.trace();

  EXPECT_EQ(sim.started(), Names{"seed"}) << sim.trace();
  EXPECT_EQ(sim.generation(), 1u);
  EXPECT_EQ(sim.lines(), Names{});
}

TEST(simulatedLaunch, promotesAHealthyCandidate) {
  SimOs sim;
  sim.install("aaaa", Runtime::healthy());
  sim.install("bbbb", Runtime::healthy());
  sim.writeBootState(stateWith("aaaa", "bbbb"));

  EXPECT_EQ(sim.runLauncher(), 0) << sim.trace();

  EXPECT_EQ(sim.started(), Names{"bbbb"}) << sim.trace();
  EXPECT_EQ(sim.bootState()->active, "bbbb") << sim.trace();
  EXPECT_EQ(sim.bootState()->previous, "aaaa");
}

TEST(simulatedLaunch, rollsASilentCandidateBackAfterItsThirdStart) {
  SimOs sim;
  sim.install("aaaa", Runtime::healthy());
  sim.install("bbbb", Runtime::silent());
  sim.writeBootState(stateWith("aaaa", "bbbb"));

  EXPECT_EQ(sim.runLauncher(), 0) << sim.trace();

  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb", "bbbb", "aaaa"})) << sim.trace();
  EXPECT_EQ(sim.bootState()->rejected, Names{"bbbb"});
}

TEST(simulatedLaunch, keepsTheDiskOverSeveralRuns) {
  SimOs sim;
  sim.installSeed({Runtime().readyAt(10).requestsUpdateAt(20, "request-1", "bbbb").exitsAt(1'000, 0)});
  sim.install("bbbb", Runtime::healthy());

  sim.runLauncher();
  EXPECT_EQ(sim.bootState()->candidate, std::nullopt);
  sim.runLauncher();

  EXPECT_EQ(sim.started(), (Names{"seed", "bbbb"})) << sim.trace();
  EXPECT_EQ(sim.bootState()->active, "bbbb");
  EXPECT_FALSE(sim.exists(sim.statePath(L"pending-v1.json")));
}

TEST(simulatedLaunch, survivesBeingKilledAtEveryChangePoint) {
  std::uint64_t points = 0;
  for (std::uint64_t point = 1;; ++point) {
    SCOPED_TRACE(point);
    SimOs sim;
    sim.install("aaaa", Runtime::healthy());
    sim.install("bbbb", Runtime::crashing(9));
    sim.writeBootState(stateWith("aaaa", "bbbb"));
    sim.killLauncherAtChangePoint(point);

    sim.runLauncher();
    const bool wasKilled = sim.lastRun().killed;
    ASSERT_TRUE(sim.bootState().has_value());
    EXPECT_EQ(sim.runLauncher(), 0) << sim.trace();
    EXPECT_EQ(sim.started().back(), "aaaa");
    ASSERT_EQ(sim.problems(), Names{}) << sim.trace();
    if (!wasKilled) break;
    points = point;
  }
  EXPECT_GT(points, 40u);
}

TEST(simulatedLaunch, repeatsItselfExactly) {
  std::string traces[2];
  for (std::string& trace : traces) {
    SimOs sim;
    sim.installSeed(Runtime::healthy());
    sim.runLauncher();
    trace = sim.trace();
  }
  EXPECT_EQ(traces[0], traces[1]);
}

TEST(simulatedLaunch, aSecondLauncherFindsTheLeaseHeld) {
  SimOs sim;
  sim.installSeed(Runtime::healthy());
  sim.holdFile(sim.statePath(L"launch.lock"));

  EXPECT_EQ(sim.runLauncher(), 0);
  EXPECT_EQ(sim.started(), Names{});
  EXPECT_EQ(sim.lines(), Names{});
}

}  // namespace
}  // namespace launcher_stub::sim
