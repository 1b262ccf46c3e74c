// The pending request, as whole runs.
#include <gtest/gtest.h>

#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

// "aaaa" is active in generation 5, "cccc" is complete.
void installUpdate(SimOs& sim) {
  installTrusted(sim);
  sim.install("cccc", Runtime::healthy());
}

TEST(update, isTakenInTriedAndPromoted) {
  SimOs sim;
  installUpdate(sim);
  sim.writePending("request-0001", 5, "cccc");

  EXPECT_EQ(sim.runLauncher(), 0);

  BootState promoted = storedState(7, "cccc", "", "aaaa");
  promoted.lastRequestId = "request-0001";
  EXPECT_EQ(sim.started(), Names{"cccc"});
  EXPECT_EQ(sim.bootState(), promoted) << "one generation for taking it in, one for the promotion";
  EXPECT_FALSE(sim.exists(sim.statePath(L"pending-v1.json")));
}

TEST(update, isOnTheDiskBeforeTheRequestGoes) {
  SimOs sim;
  installUpdate(sim);
  sim.writePending("request-0001", 5, "cccc");
  sim.before(Call::removeFile, L"pending-v1.json", [&] {
    EXPECT_EQ(sim.bootState()->candidate, "cccc");
    EXPECT_EQ(sim.bootState()->lastRequestId, "request-0001");
  });

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.count(Call::removeFile), 1);
}

TEST(update, thatDoesNotFitIsDisposedOfAndNotTakenIn) {
  struct Case {
    const char* why;
    std::string requestId;
    std::uint64_t generation;
    std::string slot;
  };
  const Case cases[] = {{"stale", "request-0002", 4, "cccc"},
                        {"of a generation to come", "request-0002", 6, "cccc"},
                        {"replayed", "request-0001", 5, "cccc"},
                        {"of a rejected slot", "request-0002", 5, "dddd"},
                        {"of an incomplete slot", "request-0002", 5, "eeee"}};

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    installUpdate(sim);
    sim.install("dddd", Runtime::healthy());
    BootState state = storedState(5, "aaaa");
    state.lastRequestId = "request-0001";
    state.rejected = {"dddd"};
    sim.writeBootState(state);
    sim.writePending(c.requestId, c.generation, c.slot);

    EXPECT_EQ(sim.runLauncher(), 0);

    EXPECT_EQ(sim.started(), Names{"aaaa"});
    EXPECT_EQ(sim.bootState(), state);
    EXPECT_FALSE(sim.exists(sim.statePath(L"pending-v1.json")));
  }
}

TEST(update, ofAnotherDeliveryIsDisposedOf) {
  SimOs sim;
  installUpdate(sim);
  sim.writeDelivery("seed", '1');
  sim.writeDelivery("aaaa", '1');
  sim.writeDelivery("cccc", '2');
  sim.writePending("request-0001", 5, "cccc");

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"aaaa"});
  EXPECT_EQ(sim.lines(), Lines{"ignoring slot cccc: delivery differs from seed"});
  EXPECT_FALSE(sim.exists(sim.statePath(L"pending-v1.json")));
}

TEST(update, replacesACandidateThatIsStillOnTrial) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());
  sim.install("cccc", Runtime::healthy());
  BootState state = trialState();
  state.attemptCount = 2;
  sim.writeBootState(state);
  sim.writePending("request-0001", 5, "cccc");
  sim.before(Call::createProcess, L"", [&] { EXPECT_EQ(sim.bootState()->attemptCount, 1U) << "it starts anew"; });

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"cccc"});
}

TEST(update, isNotConsideredInAFirstRun) {
  SimOs sim;
  sim.installSeed(readyAndEnding(1'000));
  sim.install("cccc", Runtime::healthy());
  sim.writePending("request-0001", 0, "cccc");

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"seed"});
  EXPECT_TRUE(sim.exists(sim.statePath(L"pending-v1.json"))) << "it stays for the next run";
}

TEST(update, afterARecoveryMustNameTheRaisedGeneration) {
  struct Case {
    std::uint64_t named;
    std::string started;
  };
  const Case cases[] = {{5, "aaaa"}, {6, "cccc"}};

  for (const Case& c : cases) {
    SCOPED_TRACE(c.named);
    SimOs sim;
    installUpdate(sim);
    sim.remove(sim.statePath(L"boot-v1.json"));
    sim.writePreviousState(storedState(5, "aaaa"));
    sim.writePending("request-0001", c.named, "cccc");

    EXPECT_EQ(sim.runLauncher(), 0);

    EXPECT_EQ(sim.started(), Names{c.started});
    EXPECT_FALSE(sim.exists(sim.statePath(L"pending-v1.json")));
  }
}

TEST(update, leftByARuntimeThatEndsIsTakenInByTheNextRun) {
  SimOs sim;
  installUpdate(sim);
  sim.install("aaaa", Runtime().readyAt(1).requestsUpdateAt(500, "request-0001", "cccc").exitsAt(1'000, 0));

  EXPECT_EQ(sim.runLauncher(), 0);
  EXPECT_EQ(sim.started(), Names{"aaaa"});
  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "cccc"}));
}

TEST(update, leftByARuntimeThatFailsWaitsForTheNextIteration) {
  SimOs sim;
  installUpdate(sim);
  sim.installSeed(readyAndEnding(1'000));
  sim.install("aaaa", Runtime().requestsUpdateAt(500, "request-0001", "cccc").exitsAt(1'000, 9));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "seed"}));
  EXPECT_TRUE(sim.exists(sim.statePath(L"pending-v1.json")));
}

TEST(update, thatFailsItsTrialIsRolledBackAndNeverTakenInAgain) {
  SimOs sim;
  installUpdate(sim);
  sim.install("cccc", Runtime::crashing(9));
  sim.writePending("request-0001", 5, "cccc");

  EXPECT_EQ(sim.runLauncher(), 0);
  sim.writePending("request-0002", 7, "cccc");
  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"cccc", "cccc", "cccc", "aaaa", "aaaa"}));
  EXPECT_EQ(sim.bootState()->rejected, Names{"cccc"});
  EXPECT_EQ(sim.generation(), 7U);
}

TEST(update, surrendersToTheOverflowOfTheGeneration) {
  SimOs sim;
  installUpdate(sim);
  BootState state = storedState(~std::uint64_t{0} - 1, "aaaa");
  sim.writeBootState(state);
  sim.writePending("request-0001", state.generation, "cccc");
  sim.killLauncherAt(sim.now() + 70'000);

  // Taking it in uses the last generation up; the promotion finds none.
  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_FALSE(sim.lastRun().killed);
  EXPECT_EQ(sim.lines(), Lines{"generation overflow"});
  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 60'500U);
  EXPECT_EQ(sim.bootState()->active, "aaaa");
}

}  // namespace
}  // namespace launcher_stub
