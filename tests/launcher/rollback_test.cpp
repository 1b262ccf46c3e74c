// Lives of a candidate, as whole runs.
#include <gtest/gtest.h>

#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

BootState rejectedState() {
  BootState state = storedState(6, "aaaa");
  state.rejected = {"bbbb"};
  return state;
}

TEST(candidate, isPromotedSixtySecondsAfterItsHealthyMarker) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());  // healthy at 500 ms

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"bbbb"});
  EXPECT_EQ(timeOfState(sim, "\"active\":\"bbbb\""), 60'500U);
  EXPECT_EQ(sim.bootState(), storedState(6, "bbbb", "", "aaaa"));
  EXPECT_EQ(sim.lines(), Lines{});
}

TEST(candidate, onceItIsPromotedLeavesTheStateBeforeInThePreviousFile) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());

  EXPECT_EQ(sim.runLauncher(), 0);

  BootState before = trialState();
  before.attemptCount = 1;
  EXPECT_EQ(sim.previousState(), before);
  EXPECT_EQ(sim.replacementsOf(L"boot-v1.previous.json"), 1);
}

TEST(candidate, isCountedBeforeItIsStarted) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());
  sim.before(Call::createProcess, L"", [&] { EXPECT_EQ(sim.bootState()->attemptCount, 1U); });

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.bootState()->attemptCount, 0U);
}

TEST(candidate, onceItIsPromotedEndsLikeAnyActiveSlot) {
  SimOs sim;
  installTrial(sim, Runtime().readyAt(100).healthyAt(500).exitsAt(61'000, 42));

  EXPECT_EQ(sim.runLauncher(), 42);

  EXPECT_EQ(sim.started(), Names{"bbbb"});
}

TEST(candidate, thatIsSilentIsStoppedAfterTwoMinutesAndRejectedAfterItsThirdStart) {
  SimOs sim;
  installTrial(sim, Runtime::silent());

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb", "bbbb", "aaaa"}));
  EXPECT_EQ(startTimes(sim), (Times{0, 120'250, 240'500, 360'750})) << "stopped at 120000, seen in the next tick";
  EXPECT_EQ(sim.processOf(sim.starts()[0])->endedAt - sim.lastRun().startedAt, 120'000U);
  EXPECT_EQ(sim.bootState(), rejectedState());
  EXPECT_EQ(boxTexts(sim), Lines{});
}

TEST(candidate, isGivenTwoMinutesHoweverLongTheMachineHasBeenUp) {
  struct Case {
    const char* why;
    std::uint64_t up;  // ms
  };
  const Case cases[] = {{"just started", 1},
                        {"a minute less than the limit", 60'000},
                        {"five minutes", 300'000},
                        {"49.7 days, where 32 bits overflow on the way", 4'294'967'295U - 100'000},
                        {"a century", 3'155'760'000'000U}};

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim(c.up);
    installTrial(sim, Runtime::silent());

    EXPECT_EQ(sim.runLauncher(), 0);

    EXPECT_EQ(startTimes(sim), (Times{0, 120'250, 240'500, 360'750}));
    EXPECT_EQ(sim.bootState(), rejectedState());
  }
}

TEST(candidate, thatIsHealthyInTheLastMomentIsPromoted) {
  SimOs sim;
  installTrial(sim, Runtime().readyAt(100).healthyAt(119'750).exitsAt(200'000, 0));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(timeOfState(sim, "\"active\":\"bbbb\""), 179'750U);
}

TEST(candidate, whoseHealthyMarkerComesWithTheTimeOutIsStopped) {
  SimOs sim;
  installTrial(sim, Runtime().readyAt(100).healthyAt(119'900));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(startTimes(sim), (Times{0, 120'250, 240'500, 360'750}));
  EXPECT_EQ(sim.bootState(), rejectedState());
}

TEST(candidate, isToldToEndOnceAndAMarkerAfterwardsDoesNotCount) {
  SimOs sim;
  // The tree lingers for 20 s, so the tick of the time-out takes so long; the marker comes meanwhile.
  installTrial(sim, Runtime().readyAt(100).survivesTermination(20'000));
  sim.after(125'000, [&] {
    const std::wstring directory = sim.starts().back().attemptDirectory;
    const std::string nonce(directory.end() - 32, directory.end());
    sim.writeFile(directory + L"\\healthy-v1", sim::slotReference(Form::right, "bbbb", nonce));
  });

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb", "bbbb", "aaaa"}));
  EXPECT_EQ(startTimes(sim)[1], 140'250U);
  EXPECT_EQ(sim.bootState(), rejectedState());
}

TEST(candidate, thatCrashesThreeTimesIsRejectedAndTheActiveSlotRuns) {
  SimOs sim;
  installTrial(sim, Runtime::crashing(9));

  EXPECT_EQ(sim.runLauncher(), 0) << "the code of the runtime that ran in the end";

  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb", "bbbb", "aaaa"}));
  EXPECT_EQ(sim.bootState(), rejectedState());
}

TEST(candidate, thatEndsWellBeforeItsPromotionHasFailedAllTheSame) {
  SimOs sim;
  installTrial(sim, Runtime().readyAt(100).healthyAt(500).exitsAt(30'000, 0));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb", "bbbb", "aaaa"}));
  EXPECT_EQ(sim.bootState(), rejectedState());
}

TEST(candidate, canProveItselfInALaterStart) {
  SimOs sim;
  installTrial(sim, Runtime::silent());
  sim.install("bbbb", {Runtime::crashing(9), Runtime::silent(), Runtime::healthy()});

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb", "bbbb"}));
  EXPECT_EQ(sim.bootState(), storedState(6, "bbbb", "", "aaaa"));
}

TEST(candidate, thatWasRejectedIsNotStartedInTheNextRun) {
  SimOs sim;
  installTrial(sim, Runtime::crashing(9));

  EXPECT_EQ(sim.runLauncher(), 0);
  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb", "bbbb", "aaaa", "aaaa"}));
  EXPECT_EQ(sim.bootState(), rejectedState());
}

TEST(candidate, dropsTheOldestOfSixtyFourRejectedSlots) {
  SimOs sim;
  installTrial(sim, Runtime::crashing(9));
  BootState state = trialState();
  for (int i = 0; i < 64; ++i) state.rejected.push_back("c0" + std::to_string(100 + i));
  sim.writeBootState(state);

  EXPECT_EQ(sim.runLauncher(), 0);

  ASSERT_EQ(sim.bootState()->rejected.size(), 64U);
  EXPECT_EQ(sim.bootState()->rejected.front(), "c0101");
  EXPECT_EQ(sim.bootState()->rejected.back(), "bbbb");
}

// --- Launchers that die ---

TEST(candidate, isRejectedWhenTheLauncherDiedDuringItsThirdStart) {
  SimOs sim;
  installTrial(sim, Runtime::silent());

  for (int run = 1; run <= 3; ++run) {
    sim.killLauncherAt(sim.now() + 1'000);
    (void)sim.runLauncher();
    EXPECT_EQ(sim.bootState()->attemptCount, static_cast<std::uint32_t>(run));
    EXPECT_EQ(sim.livingProcesses(), 0);
  }
  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), (Names{"bbbb", "bbbb", "bbbb", "aaaa"}));
  EXPECT_EQ(sim.bootState(), rejectedState());
}

TEST(candidate, startsItsTrialAnewAfterALauncherThatDiedBeforeThePromotion) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());
  sim.killLauncherAt(sim.now() + 60'000);

  (void)sim.runLauncher();
  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(timeOfState(sim, "\"active\":\"bbbb\""), 60'500U) << "counted from its own start";
  EXPECT_EQ(sim.bootState(), storedState(6, "bbbb", "", "aaaa"));
}

TEST(candidate, ofAnotherDeliveryIsSetAsideAndKept) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());
  BootState state = trialState();
  state.attemptCount = 3;
  sim.writeBootState(state);
  sim.writeDelivery("seed", '1');
  sim.writeDelivery("aaaa", '1');
  sim.writeDelivery("bbbb", '2');

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"aaaa"});
  EXPECT_EQ(sim.bootState(), state) << "not rejected";
  EXPECT_EQ(sim.lines(), Lines{"ignoring slot bbbb: delivery differs from seed"});
}

}  // namespace
}  // namespace launcher_stub
