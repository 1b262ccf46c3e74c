// What a runtime's restart request leads to.
#include <gtest/gtest.h>

#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

TEST(restartRequest, beginsANewIteration) {
  SimOs sim;
  installTrusted(sim);
  sim.install("aaaa", {restarting(), readyAndEnding(5'000, 4)});

  EXPECT_EQ(sim.runLauncher(), 4);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "aaaa"}));
  EXPECT_EQ(startTimes(sim), (Times{0, 1'000})) << "at once";
  EXPECT_EQ(sim.lines(), Lines{});
}

TEST(restartRequest, thatIsNotValidEndsTheRunWithTheRuntimesCode) {
  struct Case {
    const char* why;
    Form form;
    std::optional<std::string> requestId;
  };
  const Case cases[] = {{"of another attempt", Form::otherNonce, std::nullopt},
                        {"of another slot", Form::otherSlot, std::nullopt},
                        {"half written", Form::half, std::nullopt},
                        {"empty", Form::empty, std::nullopt},
                        {"for a request that nobody knows", Form::right, "request-0009"}};

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    installTrusted(sim);
    sim.install("aaaa", restarting(c.form, c.requestId, 6));

    EXPECT_EQ(sim.runLauncher(), 6);

    EXPECT_EQ(sim.started(), Names{"aaaa"});
  }
}

TEST(restartRequest, inWhateverConditionKeepsAnEndWithoutReadyFromBeingAFailure) {
  for (const Form form : {Form::otherNonce, Form::half, Form::empty}) {
    SCOPED_TRACE(static_cast<int>(form));
    SimOs sim;
    installTrusted(sim);
    sim.install("aaaa", Runtime().requestsRestartAt(500, form).exitsAt(1'000, 6));

    EXPECT_EQ(sim.runLauncher(), 6);

    EXPECT_EQ(sim.started(), Names{"aaaa"});
  }
}

TEST(restartRequest, mayNameTheLastRequestTakenIn) {
  SimOs sim;
  installTrusted(sim);
  BootState state = storedState(5, "aaaa");
  state.lastRequestId = "request-0001";
  sim.writeBootState(state);
  sim.install("aaaa", {restarting(Form::right, "request-0001"), Runtime::healthy()});

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "aaaa"}));
}

TEST(restartRequest, mayNameTheRequestThatTheRuntimeHasJustLeft) {
  SimOs sim;
  installTrusted(sim);
  sim.install("aaaa", Runtime()
                          .readyAt(1)
                          .requestsUpdateAt(900, "request-0002", "cccc")
                          .requestsRestartAt(950, Form::right, "request-0002")
                          .exitsAt(1'000, 0));
  sim.install("cccc", Runtime::healthy());

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "cccc"}));
  BootState promoted = storedState(7, "cccc", "", "aaaa");
  promoted.lastRequestId = "request-0002";
  EXPECT_EQ(sim.bootState(), promoted);
}

TEST(restartRequest, doesNotCountARequestWhereNoneAreConsidered) {
  SimOs sim;
  installTrusted(sim);
  sim.writeBootstrap(sim::bootstrapDocument(std::nullopt, 2));
  sim.install("aaaa", Runtime()
                          .readyAt(1)
                          .requestsUpdateAt(900, "request-0002", "cccc")
                          .requestsRestartAt(950, Form::right, "request-0002")
                          .exitsAt(1'000, 6));

  EXPECT_EQ(sim.runLauncher(), 6);

  EXPECT_EQ(sim.started(), Names{"aaaa"});
}

TEST(restartRequest, isNotReadAgainByTheNextAttempt) {
  SimOs sim;
  installTrusted(sim);
  sim.install("aaaa", {restarting(), Runtime().exitsAt(1'000, 6)});

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "aaaa", "seed"})) << "the second end is a failure of its own";
}

// --- By a candidate ---

TEST(restartRequest, ofACandidateDoesNotCountAsAStart) {
  SimOs sim;
  installTrial(sim, Runtime::silent());
  sim.install("bbbb", {restarting(), restarting(), restarting(), restarting(), Runtime::healthy()});

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started().size(), 5U);
  EXPECT_EQ(sim.bootState(), storedState(6, "bbbb", "", "aaaa"));
}

TEST(restartRequest, ofACandidateThatIsNotValidGivesBackTheStartAndEndsTheRun) {
  SimOs sim;
  installTrial(sim, restarting(Form::otherNonce, std::nullopt, 6));

  EXPECT_EQ(sim.runLauncher(), 6);

  EXPECT_EQ(sim.started(), Names{"bbbb"});
  EXPECT_EQ(sim.bootState(), trialState()) << "the count is back at 0";
}

TEST(restartRequest, ofACandidateThatWasStoppedForItsSilenceDoesNotCount) {
  SimOs sim;
  installTrial(sim, Runtime().readyAt(1).requestsRestartAt(119'000));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb", "bbbb", "aaaa"}));
}

// --- The new iteration ---

TEST(newIteration, readsAllFilesAnew) {
  SimOs sim;
  installTrusted(sim);
  sim.install("cccc", readyAndEnding(2'000, 5));
  sim.install("aaaa", Runtime()
                          .readyAt(1)
                          .writesStateFileAt(500, L"boot-v1.json", sim::bootStateDocument(storedState(9, "cccc")))
                          .requestsRestartAt(900)
                          .exitsAt(1'000, 0));

  EXPECT_EQ(sim.runLauncher(), 5);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "cccc"}));
  EXPECT_EQ(sim.bootState(), storedState(9, "cccc"));
}

TEST(newIteration, triesSlotsAgainThatFailedInTheOneBefore) {
  SimOs sim;
  sim.install("seed", restarting());
  sim.install("aaaa", {Runtime::crashing(9), readyAndEnding(2'000, 5)});
  sim.writeBootState(storedState(5, "aaaa"));

  EXPECT_EQ(sim.runLauncher(), 5);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "seed", "aaaa"}));
}

TEST(newIteration, forgetsThatARuntimeWasReady) {
  SimOs sim;
  sim.install("seed", {restarting(), readyAndEnding(2'000, 5)});
  sim.install("aaaa", Runtime::crashing(9));
  sim.writeBootState(storedState(5, "aaaa"));

  EXPECT_EQ(sim.runLauncher(), 5);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "seed", "aaaa", "seed"}));
}

TEST(newIteration, keepsAPreviousCopyOnlyOfAStateReadInIt) {
  SimOs sim;
  installTrusted(sim);
  // The state files go while the first runtime runs: what follows is a first run, with nothing to keep.
  sim.install("aaaa", restarting());
  sim.after(500, [&] { sim.remove(sim.statePath(L"boot-v1.json")); });

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "seed"}));
  EXPECT_EQ(sim.bootState(), storedState(1, ""));
  EXPECT_FALSE(sim.exists(sim.statePath(L"boot-v1.previous.json")));
}

TEST(newIteration, keepsTheLeaseAllTheWhile) {
  SimOs sim;
  installTrusted(sim);
  sim.install("aaaa", {restarting(), readyAndEnding(1'000)});
  int leases = 0;
  countCalls(sim, Call::openLock, L"launch.lock", leases);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(leases, 1);
  EXPECT_TRUE(sim.starts().at(1).leaseInherited);
}

TEST(newIteration, waitsFiveSecondsForTheStateLockAndThenEndsTheRun) {
  SimOs sim;
  installTrusted(sim);
  sim.install("aaaa", restarting());
  sim.after(500, [&] { sim.holdFor(sim.statePath(L"state.lock"), 10'000); });

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(timesOfLine(sim, "state lock timeout"), Times{6'000});
  EXPECT_EQ(sim.lines(), Lines{"state lock timeout"});
  EXPECT_EQ(boxTexts(sim), Lines{});
  EXPECT_EQ(sim.started(), Names{"aaaa"});
  sim.advance(10'000);
}

TEST(newIteration, goesOnWhenTheStateLockComesFreeInTime) {
  SimOs sim;
  installTrusted(sim);
  sim.install("aaaa", {restarting(), readyAndEnding(1'000)});
  sim.after(500, [&] { sim.holdFor(sim.statePath(L"state.lock"), 4'000); });

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(startTimes(sim), (Times{0, 4'500}));
}

TEST(newIteration, givesACandidateItsTwoMinutesAnew) {
  SimOs sim;
  installTrial(sim, Runtime::silent());
  sim.install("bbbb", {Runtime().readyAt(1).requestsRestartAt(100'000).exitsAt(100'000, 0), Runtime::silent(),
                       Runtime::silent(), Runtime::silent()});

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(startTimes(sim), (Times{0, 100'000, 220'250, 340'500, 460'750}));
}

TEST(newIteration, endsWhatTheOldRuntimeLeftBehind) {
  SimOs sim;
  installTrusted(sim);
  sim.install("aaaa", {Runtime().readyAt(1).startsGrandchildAt(10).requestsRestartAt(900).exitsAt(1'000, 0),
                       readyAndEnding(1'000)});

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"aaaa", "aaaa"}));
  EXPECT_EQ(sim.livingProcesses(), 0);
}

TEST(newIteration, keepsThatTheRunHasUsedItsReport) {
  SimOs sim;
  sim.install("seed", {restarting(), Runtime::crashing(9)});
  sim.fail(Call::terminateJob).times(1);  // at the end of the first runtime: uses the report up

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.started(), (Names{"seed", "seed"}));
  EXPECT_EQ(sim.lines(), Lines{"cannot end runtime process tree"}) << "\"No runnable runtime\" comes too late";
  EXPECT_EQ(boxTexts(sim), Lines{"cannot end runtime process tree"});
}

}  // namespace
}  // namespace launcher_stub
