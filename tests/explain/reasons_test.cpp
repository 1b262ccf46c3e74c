// Each reason by an example.
#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "explain/explain_start.h"
#include "explain/wording.h"
#include "tests/explain/watched_disk.h"
#include "tests/launcher/scenario.h"

namespace launcher_stub::explain {
namespace {

constexpr std::uint64_t lastGeneration = std::numeric_limits<std::uint64_t>::max();

Findings explained(SimOs& sim) {
  std::string error;
  WatchedDisk watched(sim);
  std::optional<Findings> findings = explainStart({.installDirectory = sim.installDirectory()}, error);
  watched.expectUntouched();
  EXPECT_TRUE(findings) << error;
  return findings.value_or(Findings{});
}

// "candidate bbbb starts", one for each slot in the choice.
Lines slotLines(const Findings& findings) {
  Lines lines;
  for (const SlotFinding& slot : findings.slots) {
    lines.push_back(std::string(kindName(slot.kind)) + " " + slot.slot + " " +
                    std::string(wordingOf(slot.standing).code));
  }
  return lines;
}

std::string requestCode(const Findings& findings) { return std::string(wordingOf(findings.request.standing).code); }

// "aaaa" active and "bbbb" on trial in generation 5, all complete.
void layOutTrial(SimOs& sim, std::uint32_t attemptCount = 0) {
  installTrial(sim, Runtime::healthy());
  BootState state = trialState();
  state.attemptCount = attemptCount;
  sim.writeBootState(state);
}

TEST(explainedSlots, aFirstRunStartsTheSeedAndStoresGenerationOne) {
  SimOs sim;
  sim.installSeed(Runtime::healthy);

  const Findings findings = explained(sim);

  EXPECT_EQ(slotLines(findings), (Lines{"seed seed starts"}));
  EXPECT_EQ(findings.stateFrom, StateFrom::firstRun);
  EXPECT_FALSE(findings.rootIsThere);
  EXPECT_EQ(findings.requestGeneration, std::nullopt);
  EXPECT_EQ(findings.generationAfterStart, 1U);
}

TEST(explainedSlots, aHealthyActiveSlotStartsBeforeThePreviousOneAndTheSeed) {
  SimOs sim;
  installTrusted(sim);
  sim.install("cccc", Runtime::healthy);
  sim.writeBootState(storedState(7, "aaaa", "", "cccc"));

  const Findings findings = explained(sim);

  EXPECT_EQ(slotLines(findings), (Lines{"active aaaa starts", "previous cccc comesAfter", "seed seed comesAfter"}));
  EXPECT_EQ(findings.requestGeneration, 7U);
  EXPECT_EQ(findings.generationAfterStart, 7U);
}

TEST(explainedSlots, aCandidateStartsUpToThreeTimesAndIsThenRejected) {
  struct Case {
    const char* why;
    std::uint32_t attemptCount;
    Lines slots;
    std::uint32_t candidateStart;
    std::uint64_t requestGeneration;
  };
  const Case cases[] = {
      {"first", 0, {"candidate bbbb starts", "active aaaa comesAfter", "seed seed comesAfter"}, 1, 5},
      {"third", 2, {"candidate bbbb starts", "active aaaa comesAfter", "seed seed comesAfter"}, 3, 5},
      {"fourth", 3, {"candidate bbbb startsUsedUp", "active aaaa starts", "seed seed comesAfter"}, 0, 6},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    layOutTrial(sim, c.attemptCount);

    const Findings findings = explained(sim);

    EXPECT_EQ(slotLines(findings), c.slots);
    EXPECT_EQ(findings.candidateStart, c.candidateStart);
    EXPECT_EQ(findings.requestGeneration, c.requestGeneration)
        << "the rejection raises it before a request is looked at";
  }
}

TEST(explainedSlots, anIncompleteSlotSaysWhatIsMissing) {
  struct Case {
    const char* why;
    const wchar_t* removed;
    bool markerMissing;
    bool entryMissing;
  };
  const Case cases[] = {{"marker", L"COMPLETE-v1", true, false}, {"executable", L"entry-v1.exe", false, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    layOutTrial(sim);
    sim.remove(sim.slotPath("bbbb", c.removed));

    const Findings findings = explained(sim);

    EXPECT_EQ(slotLines(findings), (Lines{"candidate bbbb incomplete", "active aaaa starts", "seed seed comesAfter"}));
    EXPECT_EQ(findings.slots.front().markerMissing, c.markerMissing);
    EXPECT_EQ(findings.slots.front().entryMissing, c.entryMissing);
  }
}

TEST(explainedSlots, aForeignDeliveryKeepsACandidateBackAndItsStartsAreLeftAlone) {
  SimOs sim;
  layOutTrial(sim, 3);
  sim.writeDelivery("seed", 'd');
  sim.writeDelivery("aaaa", 'd');
  sim.writeDelivery("bbbb", 'e');

  EXPECT_EQ(slotLines(explained(sim)),
            (Lines{"candidate bbbb foreignDelivery", "active aaaa starts", "seed seed comesAfter"}));
}

TEST(explainedSlots, aRejectedCandidateIsNotTried) {
  SimOs sim;
  layOutTrial(sim);
  BootState state = trialState();
  state.rejected = {"bbbb"};
  sim.writeBootState(state);

  EXPECT_EQ(slotLines(explained(sim)),
            (Lines{"candidate bbbb rejected", "active aaaa starts", "seed seed comesAfter"}));
}

TEST(explainedSlots, aDocumentOfANewerLauncherKeepsCandidatesBack) {
  SimOs sim;
  layOutTrial(sim);
  sim.writeFile(sim.statePath(L"pending-v1.json"), "{\"schemaVersion\":2}");
  const Findings byRequest = explained(sim);
  sim.writeBootstrap(sim::bootstrapDocument(std::nullopt, 2));
  const Findings byBootstrap = explained(sim);

  EXPECT_EQ(slotLines(byRequest).front(), "candidate bbbb requestNewer");
  EXPECT_EQ(requestCode(byRequest), "newer");
  EXPECT_EQ(byRequest.requestGeneration, std::nullopt);
  EXPECT_EQ(slotLines(byBootstrap).front(), "candidate bbbb bootstrapNewer");
  EXPECT_EQ(requestCode(byBootstrap), "bootstrapNewer");
}

TEST(explainedSlots, nothingStartsWithoutAnyRuntimeOrAtTheLastGeneration) {
  SimOs sim;
  sim.writeBootState(storedState(7, "aaaa"));
  const Findings without = explained(sim);
  installTrusted(sim);
  sim.writeBootState(storedState(lastGeneration, "aaaa"));
  const Findings atEnd = explained(sim);

  EXPECT_FALSE(without.startsSomething);
  EXPECT_EQ(without.message, "No runnable runtime");
  EXPECT_EQ(slotLines(without), (Lines{"active aaaa incomplete", "seed seed seedMissing"}));
  EXPECT_FALSE(atEnd.startsSomething);
  EXPECT_EQ(atEnd.message, "generation overflow");
  EXPECT_EQ(slotLines(atEnd), (Lines{"active aaaa generationAtEnd", "seed seed generationAtEnd"}));
}

TEST(explainedSlots, nothingStartsWhereThereCanBeNoStateRoot) {
  struct Case {
    const char* why;
    std::wstring file;
  };
  const Case cases[] = {{"the root is a file", L"C:\\Files\\root"},
                        {"one above it is", L"C:\\Files"},
                        {"the directory of attempts is", L"C:\\Files\\root\\attempts"},
                        {"that of slots is", L"C:\\Files\\root\\slots"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.installSeed(Runtime::healthy);
    sim.writeBootstrap(sim::bootstrapDocument("C:\\Files\\root"));
    sim.writeFile(c.file, "");

    const Findings findings = explained(sim);
    sim.runLauncher();

    EXPECT_FALSE(findings.startsSomething);
    EXPECT_EQ(slotLines(findings), (Lines{"seed seed rootCannotBeHad"}));
    EXPECT_EQ(boxTexts(sim), (Lines{findings.message})) << "the launcher's own words";
  }
}

TEST(explainedSlots, nothingStartsWhereNobodyNamesAStateRoot) {
  SimOs sim;
  sim.installSeed(Runtime::healthy);
  sim.removeVariable(L"LOCALAPPDATA");

  const Findings findings = explained(sim);
  sim.runLauncher();

  EXPECT_EQ(slotLines(findings), (Lines{"seed seed rootCannotBeHad"}));
  EXPECT_EQ(boxTexts(sim), (Lines{findings.message}));
}

TEST(explainedSlots, othersInTheStoreAreNamedApart) {
  SimOs sim;
  installTrusted(sim);
  sim.install("cccc", Runtime::healthy);
  sim.install("bbbb", Runtime::healthy);
  sim.remove(sim.slotPath("bbbb", L"COMPLETE-v1"));
  sim.makeDirectory(sim.statePath(L"slots\\not a slot"));
  BootState state = storedState(7, "aaaa");
  state.rejected = {"cccc"};
  sim.writeBootState(state);

  const Findings findings = explained(sim);

  ASSERT_EQ(findings.unnamed.size(), 2U);
  EXPECT_EQ(findings.unnamed[0].slot, "bbbb");
  EXPECT_FALSE(findings.unnamed[0].complete);
  EXPECT_FALSE(findings.unnamed[0].rejected);
  EXPECT_EQ(findings.unnamed[1].slot, "cccc");
  EXPECT_TRUE(findings.unnamed[1].complete);
  EXPECT_TRUE(findings.unnamed[1].rejected);
}

TEST(explainedRequest, saysWhetherItWouldBeTakenInAndWhyNot) {
  struct Case {
    const char* why;
    std::function<void(SimOs&)> prepare;
    std::string code;
    bool removed;
  };
  const Case cases[] = {
      {"fits", [](SimOs& sim) { sim.writePending("request-1", 7, "cccc"); }, "takenIn", true},
      {"old generation", [](SimOs& sim) { sim.writePending("request-1", 6, "cccc"); }, "staleGeneration", true},
      {"taken in before", [](SimOs& sim) { sim.writePending("request-0", 7, "cccc"); }, "replayed", true},
      {"rejected slot", [](SimOs& sim) { sim.writePending("request-1", 7, "dddd"); }, "rejected", true},
      {"no such slot", [](SimOs& sim) { sim.writePending("request-1", 7, "eeee"); }, "incomplete", true},
      {"foreign",
       [](SimOs& sim) {
         sim.writeDelivery("seed", 'd');
         sim.writePending("request-1", 7, "cccc");
       },
       "foreignDelivery", true},
      {"half", [](SimOs& sim) { sim.writeFile(sim.statePath(L"pending-v1.json"), "{\"sch"); }, "unreadable", false},
      {"none", [](SimOs&) {}, "none", false},
      {"last generation",
       [](SimOs& sim) {
         sim.writeBootState(storedState(lastGeneration, "aaaa"));
         sim.writePending("request-1", lastGeneration, "cccc");
       },
       "generationAtEnd", false},
      {"states unreadable",
       [](SimOs& sim) {
         sim.writeFile(sim.statePath(L"boot-v1.json"), "");
         sim.writePending("request-1", 7, "cccc");
       },
       "statesUnreadable", false},
      {"first run",
       [](SimOs& sim) {
         sim.remove(sim.statePath(L"boot-v1.json"));
         sim.writePending("request-1", 1, "cccc");
       },
       "firstRun", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    installTrusted(sim);
    for (const char* slot : {"cccc", "dddd"}) sim.install(slot, Runtime::healthy);
    BootState state = storedState(7, "aaaa");
    state.rejected = {"dddd"};
    state.lastRequestId = "request-0";
    sim.writeBootState(state);
    c.prepare(sim);

    const Findings findings = explained(sim);

    EXPECT_EQ(requestCode(findings), c.code);
    EXPECT_EQ(findings.request.removed, c.removed);
    EXPECT_FALSE(findings.request.namesActive);
  }
}

TEST(explainedRequest, replacesACandidateAndMayNameTheActiveSlot) {
  SimOs sim;
  layOutTrial(sim);
  sim.writePending("request-1", 5, "aaaa");

  const Findings findings = explained(sim);

  EXPECT_EQ(slotLines(findings), (Lines{"candidate bbbb replaced", "candidate aaaa starts", "active aaaa comesAfter",
                                        "seed seed comesAfter"}));
  EXPECT_TRUE(findings.request.namesActive);
  EXPECT_EQ(findings.generationAfterStart, 6U);
}

TEST(explainedRequest, findsTheGenerationAtItsEndWhenTheCandidatesRejectionBringsItThere) {
  SimOs sim;
  layOutTrial(sim, 3);
  BootState state = trialState();
  state.attemptCount = 3;
  state.generation = lastGeneration - 1;
  sim.writeBootState(state);
  sim.install("cccc", Runtime::healthy);
  sim.writePending("request-1", lastGeneration, "cccc");

  const Findings findings = explained(sim);

  EXPECT_FALSE(findings.startsSomething);
  EXPECT_EQ(requestCode(findings), "generationAtEnd");
  EXPECT_EQ(findings.generationAfterStart, std::nullopt);
}

TEST(explainedState, isThePreviousOneWhereTheCurrentOneIsSpoiledAndCountsOnFromIt) {
  SimOs sim;
  installTrusted(sim);
  sim.writeFile(sim.statePath(L"boot-v1.json"), "{\"generation\":\"9\"}");
  sim.writePreviousState(storedState(6, "aaaa"));

  const Findings findings = explained(sim);

  EXPECT_EQ(findings.stateFrom, StateFrom::previous);
  EXPECT_EQ(slotLines(findings).front(), "active aaaa starts");
  EXPECT_EQ(findings.requestGeneration, 10U) << "above what can still be seen in the spoiled file";
  EXPECT_EQ(findings.generationAfterStart, 10U);
}

TEST(explainedState, isNoneWhereBothFilesAreSpoiledAndNothingIsStoredThen) {
  SimOs sim;
  installTrusted(sim);
  sim.writeFile(sim.statePath(L"boot-v1.json"), "{");
  sim.writeFile(sim.statePath(L"boot-v1.previous.json"), "[]");

  const Findings findings = explained(sim);

  EXPECT_EQ(findings.stateFrom, StateFrom::unreadable);
  EXPECT_EQ(slotLines(findings), (Lines{"seed seed starts"}));
  EXPECT_EQ(findings.generationAfterStart, std::nullopt);
}

TEST(explainedDocuments, haveTheirReadersOwnErrorTexts) {
  SimOs sim;
  installTrusted(sim);
  sim.writeFile(sim.statePath(L"boot-v1.json"), "{\"schemaVersion\":1}");
  sim.writeFile(sim.statePath(L"boot-v1.previous.json"), "[]");
  sim.writeFile(sim.statePath(L"pending-v1.json"), std::string(70'000, ' '));
  sim.writeFile(sim.slotPath("seed", L"delivery-v1.json"), "{\"schemaVersion\":1,\"deliveryId\":\"d\"}");

  Lines lines;
  for (const DocumentFinding& document : explained(sim).documents) {
    lines.push_back(document.name + " " + std::string(wordingOf(document.condition).code) + " " + document.error);
  }

  EXPECT_EQ(lines, (Lines{"bootstrap-v1.json valid ", "boot-v1.json invalid invalid generation",
                          "boot-v1.previous.json invalid expected object", "pending-v1.json unreadable ",
                          "seed delivery-v1.json invalid invalid deliveryId"}));
}

TEST(explainedDocuments, holdTheDeliveryOfEachNamedSlotOnce) {
  SimOs sim;
  layOutTrial(sim);
  sim.writeDelivery("aaaa", 'd');
  sim.writePending("request-1", 4, "bbbb");

  const Findings findings = explained(sim);

  ASSERT_EQ(findings.documents.size(), 7U);
  EXPECT_EQ(findings.documents[5].name, "bbbb delivery-v1.json");
  EXPECT_EQ(findings.documents[5].condition, Condition::missing);
  EXPECT_EQ(findings.documents[6].name, "aaaa delivery-v1.json");
  EXPECT_EQ(findings.documents[6].condition, Condition::valid);
}

TEST(explainedDocuments, thatAreChangedMeanwhileAreLookedAtAgain) {
  for (const bool stops : {true, false}) {
    SCOPED_TRACE(stops ? "one change" : "changed at every look");
    SimOs sim;
    installTrusted(sim);
    sim.writeBootState(storedState(7, "aaaa"));
    for (int look = 0; look < (stops ? 1 : 9); ++look) {
      sim.before(
          Call::status, L"entry-v1.exe",
          [&sim, look] { sim.writeBootState(storedState(8 + static_cast<std::uint64_t>(look), "aaaa")); },
          look * 2);  // the active slot's and the seed's, at each look
    }
    std::string error;

    const std::optional<Findings> findings = explainStart({.installDirectory = sim.installDirectory()}, error);

    EXPECT_EQ(findings->changedMeanwhile, !stops);
    EXPECT_EQ(findings->requestGeneration == 8U, stops);
  }
}

std::string attemptText(const std::string& slot, const std::string& nonce) {
  return sim::slotReference(Form::right, slot, nonce);
}

TEST(explainedAttempts, showSlotMarkersAndRestartTheNewestFirst) {
  SimOs sim;
  installTrusted(sim);
  sim.writeBootState(storedState(7, "aaaa"));
  const auto write = [&sim](const wchar_t* path, const std::string& text) { sim.writeFile(sim.statePath(path), text); };
  write(L"attempts\\nonce-old\\boot-v1.json", attemptText("aaaa", "nonce-old"));
  write(L"attempts\\nonce-old\\ready-v1", attemptText("aaaa", "nonce-000"));
  write(L"attempts\\nonce-old\\healthy-v1", "{");
  write(L"attempts\\nonce-old\\restart-v1.json", "{}");
  sim.advance(1'000);
  write(L"attempts\\nonce-new\\boot-v1.json", attemptText("bbbb", "nonce-new"));
  write(L"attempts\\nonce-new\\ready-v1", attemptText("bbbb", "nonce-new"));
  write(L"attempts\\nonce-new\\restart-v1.json", attemptText("bbbb", "nonce-new"));
  sim.advance(1'000);
  write(L"attempts\\empty\\other", "");

  const Findings findings = explained(sim);

  ASSERT_EQ(findings.attempts.size(), 3U);
  EXPECT_EQ(findings.attempts[0].name, L"empty");
  EXPECT_EQ(findings.attempts[0].record.condition, Condition::missing);
  const AttemptFinding& newer = findings.attempts[1];
  EXPECT_EQ(newer.slot, "bbbb");
  EXPECT_EQ(newer.ready.standing, MarkerStanding::counts);
  EXPECT_EQ(newer.healthy.standing, MarkerStanding::absent);
  EXPECT_EQ(newer.restart.standing, RestartStanding::asked);
  const AttemptFinding& older = findings.attempts[2];
  EXPECT_EQ(older.slot, "aaaa");
  EXPECT_EQ(older.ready.standing, MarkerStanding::otherAttempt);
  EXPECT_EQ(older.healthy.standing, MarkerStanding::unreadable);
  EXPECT_EQ(older.healthy.error, "object syntax");
  EXPECT_EQ(older.restart.standing, RestartStanding::unreadable);
  EXPECT_EQ(older.restart.error, "missing schemaVersion");
}

TEST(explainedAttempts, aRestartCountsOnlyForARequestThatIsKnown) {
  struct Case {
    const char* why;
    std::string requestId;
    RestartStanding standing;
  };
  const Case cases[] = {{"taken in last", "request-0", RestartStanding::asked},
                        {"pending", "request-1", RestartStanding::asked},
                        {"unknown", "request-2", RestartStanding::notOfThis}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    installTrusted(sim);
    BootState state = storedState(7, "aaaa");
    state.lastRequestId = "request-0";
    sim.writeBootState(state);
    sim.writePending("request-1", 7, "aaaa");
    sim.writeFile(sim.statePath(L"attempts\\nonce-new\\boot-v1.json"), attemptText("aaaa", "nonce-new"));
    sim.writeFile(sim.statePath(L"attempts\\nonce-new\\restart-v1.json"),
                  sim::slotReference(Form::right, "aaaa", "nonce-new", c.requestId));

    EXPECT_EQ(explained(sim).attempts.front().restart.standing, c.standing);
  }
}

}  // namespace
}  // namespace launcher_stub::explain
