#include "tests/sweeps/scenarios.h"

#include <limits>
#include <string>

namespace launcher_stub::sweeps {
namespace {

using sim::Form;
using sim::Runtime;
using sim::SimOs;

constexpr std::uint64_t lastGeneration = std::numeric_limits<std::uint64_t>::max();

// Runtimes. Their lives are short where nothing depends on time: every idle tick is one more to be tried.
Runtime worksFor(std::uint64_t ms, std::uint32_t code = 0) { return Runtime().readyAt(100).exitsAt(ms, code); }
Runtime works() { return worksFor(600); }
Runtime soaks() { return Runtime().readyAt(100).healthyAt(400).exitsAt(61'500, 0); }  // long enough to be promoted
Runtime crashes() { return Runtime::crashing(7); }

BootState trusted(std::uint64_t generation = 5) {
  BootState state;
  state.generation = generation;
  state.active = "aaaa";
  return state;
}

BootState onTrial(std::uint32_t attemptCount, std::uint64_t generation = 6) {
  BootState state = trusted(generation);
  state.candidate = "bbbb";
  state.attemptCount = attemptCount;
  state.lastRequestId = "request-1";
  return state;
}

// The seed, the active slot and a candidate that is to do what the scenario is about.
void installAll(SimOs& machine, const Runtime& candidate) {
  machine.installSeed(works());
  machine.install("aaaa", works());
  machine.install("bbbb", candidate);
}

void prepareTrial(SimOs& machine, std::uint32_t attemptCount, const Runtime& candidate) {
  installAll(machine, candidate);
  machine.writeBootState(onTrial(attemptCount));
}

void prepareRequest(SimOs& machine, const Runtime& candidate) {
  installAll(machine, candidate);
  machine.writeBootState(trusted());
  machine.writePending("request-1", 5, "bbbb");
}

// What is there cannot be started: the system finds a directory.
void cannotStart(SimOs& machine, const std::string& slot) {
  if (slot != "seed") machine.writeFile(machine.slotPath(slot, L"COMPLETE-v1"), "");
  machine.makeDirectory(machine.slotPath(slot, L"entry-v1.exe"));
}

void damage(SimOs& machine) { machine.writeFile(machine.statePath(L"boot-v1.json"), "{\"schemaVersion\":1,\"gen"); }

void addOldAttempts(SimOs& machine, int count) {
  for (int i = 0; i < count; ++i) {
    const std::wstring path = machine.statePath(L"attempts\\old" + std::to_wstring(i));
    machine.advance(10);
    machine.writeFile(path + L"\\boot-v1.json", "{}");
  }
}

// --- First runs and plain runs ---

void firstRun(SimOs& machine) { machine.installSeed(works()); }
void firstRunWithoutSeed(SimOs& /*machine*/) {}
void firstRunWithRequest(SimOs& machine) {
  installAll(machine, works());
  machine.writePending("request-1", 1, "bbbb");
}
void plainActive(SimOs& machine) {
  machine.installSeed(works());
  machine.install("aaaa", worksFor(600, 5));
  machine.writeBootState(trusted());
}
void copyFarBehind(SimOs& machine) {
  plainActive(machine);
  machine.writePreviousState(trusted(2));
}
void plainSeed(SimOs& machine) {
  machine.installSeed(worksFor(600, 0xC0000005));
  machine.writeBootState({.generation = 1});
}
void sameDeliveries(SimOs& machine) {
  plainActive(machine);
  machine.writeDelivery("seed", 'a');
  machine.writeDelivery("aaaa", 'a');
}
void rootElsewhere(SimOs& machine) {
  machine.setStateRoot(L"C:\\App\\state");
  machine.writeBootstrap(sim::bootstrapDocument("state"));
  plainActive(machine);
}
void volumeWithoutLists(SimOs& machine) {
  machine.setVolumeKeepsLists(false);
  firstRun(machine);
}
void rootOfAdministrators(SimOs& machine) {
  plainActive(machine);
  machine.setMemberOfAdministrators(true);
  machine.setOwner(machine.stateRoot(), sim::Owner::administrators);
  machine.setListDrifted(machine.stateRoot());
}
void oldAttempts(SimOs& machine) {
  plainActive(machine);
  addOldAttempts(machine, 3);
  machine.writeFile(machine.statePath(L"attempts\\file"), "stays");
}
void newerBootstrap(SimOs& machine) {
  machine.writeBootstrap(sim::bootstrapDocument(std::nullopt, 2));
  prepareTrial(machine, 1, soaks());
  machine.writePending("request-2", 6, "bbbb");
}

// --- Requests ---

void takenInAndPromoted(SimOs& machine) { prepareRequest(machine, soaks()); }
void takenInAndCrashing(SimOs& machine) { prepareRequest(machine, crashes()); }
void takenInAndClosedEarly(SimOs& machine) { prepareRequest(machine, worksFor(2'000)); }
void takenInWhileAnotherIsOnTrial(SimOs& machine) {
  prepareTrial(machine, 2, crashes());
  machine.install("cccc", soaks());
  machine.writePending("request-2", 6, "cccc");
}
void takenInForTheActiveSlot(SimOs& machine) {
  machine.installSeed(works());
  machine.install("aaaa", soaks());
  machine.writeBootState(trusted());
  machine.writePending("request-1", 5, "aaaa");
}
void takenInAfterTheUsedUpOne(SimOs& machine) {
  prepareTrial(machine, 3, crashes());
  machine.install("cccc", soaks());
  machine.writePending("request-2", 7, "cccc");
}
void staleRequest(SimOs& machine) {
  prepareRequest(machine, works());
  machine.writePending("request-1", 4, "bbbb");
}
void replayedRequest(SimOs& machine) {
  prepareRequest(machine, works());
  BootState state = trusted();
  state.lastRequestId = "request-1";
  machine.writeBootState(state);
}
void requestForARejectedSlot(SimOs& machine) {
  prepareRequest(machine, works());
  BootState state = trusted();
  state.rejected = {"bbbb"};
  machine.writeBootState(state);
}
void requestForAnIncompleteSlot(SimOs& machine) {
  prepareRequest(machine, works());
  machine.remove(machine.slotPath("bbbb", L"COMPLETE-v1"));
}
void requestOfANewerMajor(SimOs& machine) {
  prepareTrial(machine, 1, works());
  machine.writeFile(machine.statePath(L"pending-v1.json"), "{\"schemaVersion\":2}");
}
void halfWrittenRequest(SimOs& machine) {
  prepareRequest(machine, works());
  machine.writeFile(machine.statePath(L"pending-v1.json"), "{\"schemaVersion\":1,\"requ");
}

// --- Tries ---

void secondTry(SimOs& machine) { prepareTrial(machine, 1, soaks()); }
void thirdTryPromoted(SimOs& machine) { prepareTrial(machine, 2, soaks()); }
void thirdTryCrashing(SimOs& machine) { prepareTrial(machine, 2, crashes()); }
void usedUpAtTheStart(SimOs& machine) { prepareTrial(machine, 3, soaks()); }
void thirdTrySilent(SimOs& machine) { prepareTrial(machine, 2, Runtime::silent()); }
void promotionWithAPrevious(SimOs& machine) {
  prepareTrial(machine, 0, soaks());
  machine.install("cccc", works());
  BootState state = onTrial(0);
  state.previous = "cccc";
  machine.writeBootState(state);
}
void promotionFromTheSeed(SimOs& machine) {
  prepareTrial(machine, 0, soaks());
  BootState state = onTrial(0);
  state.active.reset();
  machine.writeBootState(state);
}
void foreignMarkersFirst(SimOs& machine) {
  prepareTrial(machine, 0,
               Runtime()
                   .readyAt(100, Form::otherNonce)
                   .healthyAt(200, Form::half)
                   .healthyAt(450, Form::otherSlot)
                   .healthyAt(700, Form::otherNonce)
                   .healthyAt(1'200)
                   .exitsAt(62'500, 0));
}
void promotedAndThenCrashing(SimOs& machine) { prepareTrial(machine, 1, Runtime().healthyAt(100).exitsAt(60'900, 9)); }
void rejectionWithAFullList(SimOs& machine) {
  prepareTrial(machine, 2, crashes());
  BootState state = onTrial(2);
  for (int i = 0; i < 64; ++i) state.rejected.push_back("dd" + std::to_string(10 + i));
  machine.writeBootState(state);
}
void candidateOnTheRejectedList(SimOs& machine) {
  prepareTrial(machine, 1, soaks());
  BootState state = onTrial(1);
  state.rejected = {"bbbb"};
  machine.writeBootState(state);
}
void foreignDeliveryOfAUsedUpCandidate(SimOs& machine) {
  prepareTrial(machine, 3, works());
  machine.writeDelivery("seed", 'a');
  machine.writeDelivery("aaaa", 'a');
  machine.writeDelivery("bbbb", 'b');
}
void candidateCannotStart(SimOs& machine) {
  machine.installSeed(works());
  machine.install("aaaa", works());
  cannotStart(machine, "bbbb");
  machine.writeBootState(onTrial(0));
}

// --- Fall-throughs ---

void activeIncomplete(SimOs& machine) {
  machine.installSeed(works());
  machine.install("cccc", works());
  BootState state = trusted();
  state.previous = "cccc";
  machine.writeBootState(state);
}
void activeAndPreviousIncomplete(SimOs& machine) {
  machine.installSeed(works());
  BootState state = trusted();
  state.previous = "cccc";
  machine.writeBootState(state);
}
void activeCrashing(SimOs& machine) {
  activeIncomplete(machine);
  machine.install("aaaa", crashes());
}
void everythingCrashing(SimOs& machine) {
  machine.installSeed(crashes());
  machine.install("aaaa", crashes());
  machine.install("cccc", crashes());
  BootState state = trusted();
  state.previous = "cccc";
  machine.writeBootState(state);
}
void activeCannotStart(SimOs& machine) {
  activeIncomplete(machine);
  cannotStart(machine, "aaaa");
}
void nothingCanStart(SimOs& machine) {
  cannotStart(machine, "seed");
  cannotStart(machine, "aaaa");
  machine.writeBootState(trusted());
}

// --- Recoveries ---

void recovery(SimOs& machine) {
  installAll(machine, works());
  machine.writePreviousState(trusted());
  damage(machine);
}
void recoveryOfAMissingState(SimOs& machine) {
  installAll(machine, works());
  machine.writePreviousState(trusted());
}
void recoveryWithACandidate(SimOs& machine) {
  installAll(machine, soaks());
  machine.writePreviousState(onTrial(1));
  damage(machine);
}
void recoveryWithAUsedUpCandidate(SimOs& machine) {
  installAll(machine, works());
  machine.writePreviousState(onTrial(3));
  damage(machine);
}
void recoveryWithARequest(SimOs& machine) {
  installAll(machine, soaks());
  machine.writePreviousState(trusted());
  damage(machine);
  machine.writePending("request-1", 6, "bbbb");
}
void recoveryAboveTheProbedGeneration(SimOs& machine) {
  recovery(machine);
  machine.writeFile(machine.statePath(L"boot-v1.json"), "{\"schemaVersion\":1,\"generation\":\"40\"}");
}
void bothStateFilesUnreadable(SimOs& machine) {
  installAll(machine, works());
  damage(machine);
  machine.writeFile(machine.statePath(L"boot-v1.previous.json"), "");
}

// --- Restarts ---

void restartOfTheActiveSlot(SimOs& machine) {
  installAll(machine, works());
  machine.install("aaaa", {Runtime().readyAt(100).requestsRestartAt(300).exitsAt(600, 0), works()});
  machine.writeBootState(trusted());
}
void updateLeftWithARestart(SimOs& machine) {
  installAll(machine, soaks());
  machine.install("aaaa", {Runtime()
                               .readyAt(100)
                               .requestsUpdateAt(200, "request-2", "bbbb")
                               .requestsRestartAt(300, Form::right, "request-2")
                               .exitsAt(600, 0),
                           works()});
  machine.writeBootState(trusted());
}
void restartOfTheCandidate(SimOs& machine) {
  installAll(machine, works());
  machine.install("bbbb", {Runtime().readyAt(100).requestsRestartAt(300).exitsAt(600, 0), soaks()});
  machine.writeBootState(onTrial(0));
}
void foreignRestartOfTheCandidate(SimOs& machine) {
  prepareTrial(machine, 2, Runtime().requestsRestartAt(300, Form::otherNonce).exitsAt(600, 3));
}
void unreadableRestartOfTheActiveSlot(SimOs& machine) {
  installAll(machine, works());
  machine.install("aaaa", Runtime().requestsRestartAt(300, Form::half).exitsAt(600, 3));
  machine.writeBootState(trusted());
}

// --- The end of the generations ---

void overflowAtTheStart(SimOs& machine) {
  installAll(machine, works());
  machine.writeBootState(trusted(lastGeneration));
}
void overflowAtTheTakingIn(SimOs& machine) {
  prepareRequest(machine, soaks());
  machine.writeBootState(trusted(lastGeneration - 1));
  machine.writePending("request-1", lastGeneration - 1, "bbbb");
}
void overflowAtTheRecovery(SimOs& machine) {
  installAll(machine, works());
  machine.writePreviousState(trusted(lastGeneration - 1));
}
void overflowAtThePromotion(SimOs& machine) {
  prepareTrial(machine, 0, soaks());
  machine.writeBootState(onTrial(0, lastGeneration - 1));
}

// --- Disturbances ---

void stateHeldForThreeSeconds(SimOs& machine) {
  machine.holdFor(machine.statePath(L"boot-v1.json"), 3'000, sim::accessRead);
}
void stateHeldForFortySeconds(SimOs& machine) {
  machine.holdFor(machine.statePath(L"boot-v1.json"), 40'000, sim::accessRead);
}
void stateHeldAtTheExit(SimOs& machine) {
  machine.after(10, [&machine] { machine.holdFor(machine.statePath(L"boot-v1.json"), 5'000, sim::accessRead); });
}
void stateHeldAtThePromotion(SimOs& machine) {
  machine.after(60'000, [&machine] { machine.holdFor(machine.statePath(L"boot-v1.json"), 35'000, sim::accessRead); });
}
void lockHeldForThreeSeconds(SimOs& machine) { machine.holdFor(machine.statePath(L"state.lock"), 3'000); }
void lockHeldForSixSeconds(SimOs& machine) { machine.holdFor(machine.statePath(L"state.lock"), 6'000); }
void oldAttemptHeld(SimOs& machine) {
  machine.holdFor(machine.statePath(L"attempts\\old0"), 60'000, sim::accessReadWrite);
}

void soaksForLong(SimOs& machine) {
  prepareTrial(machine, 0, Runtime().readyAt(100).healthyAt(400).exitsAt(97'000, 0));
}
void grandchildLivesOn(SimOs& machine) {
  installAll(machine, works());
  machine.install("aaaa", Runtime().readyAt(50).startsGrandchildAt(100).exitsAt(400, 2).survivesTermination(1'200));
  machine.writeBootState(trusted());
}
// Longer than anybody waits for it.
void grandchildSurvivesItsEnd(SimOs& machine) {
  installAll(machine, works());
  machine.install("aaaa", Runtime().readyAt(50).exitsAt(400, 2).doesAt(100, [](sim::RunningRuntime& self) {
    const std::uint32_t grandchild = self.startGrandchild(sim::forever);
    self.sim().processes().find(grandchild)->survivesTermination = 40'000;
  }));
  machine.writeBootState(trusted());
}
void candidateSurvivesItsEndForAWhile(SimOs& machine) {
  prepareTrial(machine, 2, Runtime().survivesTermination(2'000));
}

}  // namespace

const std::vector<Scenario>& scenarios() {
  static const std::vector<Scenario> all = {
      {"first run", firstRun},
      {"first run without a seed", firstRunWithoutSeed},
      {"first run with a request", firstRunWithRequest},
      {"active slot", plainActive},
      {"active slot, the previous copy far behind", copyFarBehind},
      {"seed", plainSeed},
      {"active slot of the seed's delivery", sameDeliveries},
      {"state root in the install directory", rootElsewhere},
      {"volume without lists", volumeWithoutLists},
      {"root of the administrators, its list drifted", rootOfAdministrators},
      {"old attempts to prune", oldAttempts},
      {"old attempt held open", oldAttempts, oldAttemptHeld},
      {"bootstrap of a newer major", newerBootstrap},
      {"request taken in, promoted", takenInAndPromoted},
      {"request taken in, crashing", takenInAndCrashing},
      {"request taken in, closed early", takenInAndClosedEarly},
      {"request taken in while another is on trial", takenInWhileAnotherIsOnTrial},
      {"request taken in for the active slot", takenInForTheActiveSlot},
      {"request taken in after the used-up candidate", takenInAfterTheUsedUpOne},
      {"request of another generation", staleRequest},
      {"request left again", replayedRequest},
      {"request for a rejected slot", requestForARejectedSlot},
      {"request for an incomplete slot", requestForAnIncompleteSlot},
      {"request of a newer major", requestOfANewerMajor},
      {"request half written", halfWrittenRequest},
      {"second try", secondTry},
      {"third try, promoted", thirdTryPromoted},
      {"third try, crashing", thirdTryCrashing},
      {"third try, silent", thirdTrySilent},
      {"candidate used up at the start", usedUpAtTheStart},
      {"promotion with a previous slot", promotionWithAPrevious},
      {"promotion from the seed", promotionFromTheSeed},
      {"markers of others first", foreignMarkersFirst},
      {"promoted, then crashing", promotedAndThenCrashing},
      {"rejection with a full list", rejectionWithAFullList},
      {"candidate on the rejected list", candidateOnTheRejectedList},
      {"used-up candidate of another delivery", foreignDeliveryOfAUsedUpCandidate},
      {"candidate that cannot start", candidateCannotStart},
      {"active slot incomplete", activeIncomplete},
      {"active and previous slot incomplete", activeAndPreviousIncomplete},
      {"active slot crashing", activeCrashing},
      {"everything crashing", everythingCrashing},
      {"active slot that cannot start", activeCannotStart},
      {"nothing that can start", nothingCanStart},
      {"recovery from the previous copy", recovery},
      {"recovery of a missing state", recoveryOfAMissingState},
      {"recovery with a candidate", recoveryWithACandidate},
      {"recovery with a used-up candidate", recoveryWithAUsedUpCandidate},
      {"recovery with a request", recoveryWithARequest},
      {"recovery above the probed generation", recoveryAboveTheProbedGeneration},
      {"both state files unreadable", bothStateFilesUnreadable},
      {"restart of the active slot", restartOfTheActiveSlot},
      {"update left with a restart", updateLeftWithARestart},
      {"restart of the candidate", restartOfTheCandidate},
      {"foreign restart request of the candidate", foreignRestartOfTheCandidate},
      {"unreadable restart request of the active slot", unreadableRestartOfTheActiveSlot},
      {"overflow at the start", overflowAtTheStart},
      {"overflow at the taking in", overflowAtTheTakingIn},
      {"overflow at the recovery", overflowAtTheRecovery},
      {"overflow at the promotion", overflowAtThePromotion},
      {"state held for 3 s", takenInAndCrashing, stateHeldForThreeSeconds},
      {"state held for 40 s", takenInAndCrashing, stateHeldForFortySeconds},
      {"state held at the exit", thirdTryCrashing, stateHeldAtTheExit},
      {"state held at the promotion", soaksForLong, stateHeldAtThePromotion},
      {"state lock held for 3 s", plainActive, lockHeldForThreeSeconds},
      {"state lock held for 6 s", plainActive, lockHeldForSixSeconds},
      {"grandchild lives on", grandchildLivesOn},
      {"grandchild survives its end", grandchildSurvivesItsEnd},
      {"candidate survives its end for a while", candidateSurvivesItsEndForAWhile},
  };
  return all;
}

}  // namespace launcher_stub::sweeps
