#include "launcher/launch_iteration.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

// --- The stored state ---

TEST(storedState, isReadFromTheBootStateFile) {
  SimOs sim;
  installTrusted(sim);
  sim.writePreviousState(storedState(9, "cccc"));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"aaaa"});
  EXPECT_EQ(sim.bootState(), storedState(5, "aaaa")) << "nothing was to be written";
  EXPECT_EQ(sim.previousState(), storedState(9, "cccc"));
}

TEST(storedState, leavesThePreviousFileUnreadWhereTheFirstIsValid) {
  SimOs sim;
  installTrusted(sim);
  int reads = 0;
  countCalls(sim, Call::readFile, L"boot-v1.previous.json", reads);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(reads, 0);
}

TEST(storedState, comesFromThePreviousFileWhereTheFirstYieldsNone) {
  struct Case {
    const char* why;
    std::function<void(SimOs&)> spoil;
  };
  const Case cases[] = {
      {"missing", [](SimOs&) {}},
      {"cut", [](SimOs& sim) { sim.writeFile(sim.statePath(L"boot-v1.json"), "{\"schemaVersion\":1,"); }},
      {"empty", [](SimOs& sim) { sim.writeFile(sim.statePath(L"boot-v1.json"), ""); }},
      {"a version to come", [](SimOs& sim) { sim.writeFile(sim.statePath(L"boot-v1.json"), "{\"schemaVersion\":2}"); }},
      {"too large", [](SimOs& sim) { sim.writeFile(sim.statePath(L"boot-v1.json"), std::string(65537, ' ')); }},
      {"not readable", [](SimOs& sim) { sim.fail(Call::readFile, sim.statePath(L"boot-v1.json")); }},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.install("aaaa", readyAndEnding(1'000));
    sim.writePreviousState(storedState(7, "aaaa"));
    c.spoil(sim);

    EXPECT_EQ(sim.runLauncher(), 0);

    BootState recovered = storedState(8, "aaaa");
    recovered.recovered = true;
    EXPECT_EQ(sim.started(), Names{"aaaa"});
    EXPECT_EQ(sim.bootState(), recovered);
    EXPECT_EQ(sim.previousState(), storedState(7, "aaaa"));
    EXPECT_EQ(sim.lines(), Lines{}) << "a recovery is silent";
  }
}

TEST(firstRun, startsTheSeedAndWritesTheFirstState) {
  SimOs sim;
  sim.installSeed(readyAndEnding(1'000));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"seed"});
  EXPECT_EQ(sim.bootState(), storedState(1, ""));
  EXPECT_FALSE(sim.exists(sim.statePath(L"boot-v1.previous.json"))) << "there is no state to keep";
}

TEST(firstRun, isOnlyWhereBothFilesAreMissingOnTheSystemsWord) {
  struct Case {
    const char* why;
    std::function<void(SimOs&)> spoil;
  };
  const Case cases[] = {
      {"the first is there, unusable", [](SimOs& sim) { sim.writeFile(sim.statePath(L"boot-v1.json"), "x"); }},
      {"the previous is there, unusable",
       [](SimOs& sim) { sim.writeFile(sim.statePath(L"boot-v1.previous.json"), "x"); }},
      {"the first cannot be looked at", [](SimOs& sim) { sim.fail(Call::status, sim.statePath(L"boot-v1.json")); }},
      {"the previous cannot be looked at",
       [](SimOs& sim) { sim.fail(Call::status, sim.statePath(L"boot-v1.previous.json")); }},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.installSeed(readyAndEnding(1'000));
    c.spoil(sim);

    EXPECT_EQ(sim.runLauncher(), 0);

    EXPECT_EQ(sim.started(), Names{"seed"});
    EXPECT_EQ(sim.replacementsOf(sim.statePath(L"boot-v1.json")), 0) << "nothing is overwritten";
    EXPECT_EQ(sim.replacementsOf(sim.statePath(L"boot-v1.previous.json")), 0);
  }
}

TEST(generationFloor, keepsANewGenerationAboveTheUnreadableFiles) {
  struct Case {
    const char* why;
    std::string generation;
    std::uint64_t written;
  };
  const Case cases[] = {{"above the copy's", "\"41\"", 42},
                        {"one above", "\"8\"", 9},
                        {"equal", "\"7\"", 8},
                        {"below", "\"3\"", 8},
                        {"not to be had", "41", 8}};

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.install("aaaa", readyAndEnding(1'000));
    sim.writePreviousState(storedState(7, "aaaa"));
    sim.writeFile(sim.statePath(L"boot-v1.json"), "{\"generation\":" + c.generation + "}");

    EXPECT_EQ(sim.runLauncher(), 0);

    EXPECT_EQ(sim.generation(), c.written);
  }
}

TEST(generationOverflow, endsTheRunBeforeAnyStart) {
  struct Case {
    const char* why;
    std::function<void(SimOs&)> prepare;
  };
  const std::uint64_t last = ~std::uint64_t{0};
  const Case cases[] = {
      {"stored", [](SimOs& sim) { sim.writeBootState(storedState(last, "aaaa")); }},
      {"one before the end, in the previous file",
       [](SimOs& sim) { sim.writePreviousState(storedState(last - 1, "aaaa")); }},
      {"probed",
       [](SimOs& sim) {
         sim.writePreviousState(storedState(7, "aaaa"));
         sim.writeFile(sim.statePath(L"boot-v1.json"), "{\"generation\":\"18446744073709551615\"}");
       }},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.installSeed(Runtime::healthy());
    sim.install("aaaa", Runtime::healthy());
    c.prepare(sim);

    EXPECT_EQ(sim.runLauncher(), 1);

    EXPECT_EQ(sim.lines(), Lines{"generation overflow"});
    EXPECT_EQ(boxTexts(sim), Lines{"generation overflow"});
    EXPECT_EQ(sim.started(), Names{});
    EXPECT_EQ(sim.count(Call::replace), 0);
  }
}

// --- The pending request ---

TEST(pendingRequest, isTakenInAndItsSlotIsLookedAt) {
  SimOs sim;
  installTrusted(sim);
  sim.install("cccc", Runtime::healthy());
  sim.writePending("request-0001", 5, "cccc");

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"cccc"});
  EXPECT_FALSE(sim.exists(sim.statePath(L"pending-v1.json")));
}

TEST(pendingRequest, ofANewerMajorVersionIsLeftAloneAndStopsTrials) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());
  const std::string document = "{\"schemaVersion\":2,\"requestId\":\"request-0001\"}";
  sim.writeFile(sim.statePath(L"pending-v1.json"), document);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"aaaa"}) << "no candidate is tried";
  EXPECT_EQ(sim.read(sim.statePath(L"pending-v1.json")), document);
  EXPECT_EQ(sim.bootState(), trialState());
}

TEST(pendingRequest, thatIsInvalidCountsAsNoneAndStays) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());
  sim.writeFile(sim.statePath(L"pending-v1.json"), "{\"schemaVersion\":1");

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"bbbb"}) << "the trial goes on";
  EXPECT_TRUE(sim.exists(sim.statePath(L"pending-v1.json")));
}

TEST(newerBootstrap, leavesPendingRequestsUnreadAndCandidatesUntried) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());
  sim.install("cccc", Runtime::healthy());
  sim.writeBootstrap(sim::bootstrapDocument(std::nullopt, 2));
  sim.writePending("request-0001", 5, "cccc");
  int reads = 0;
  countCalls(sim, Call::readFile, L"pending-v1.json", reads);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"aaaa"});
  EXPECT_EQ(reads, 0);
  EXPECT_TRUE(sim.exists(sim.statePath(L"pending-v1.json")));
  EXPECT_EQ(sim.bootState(), trialState());
}

// --- Slots ---

TEST(seed, isStartedAlsoWhereItCannotBeLookedAt) {
  SimOs sim;
  sim.installSeed(readyAndEnding(1'000));
  sim.fail(Call::status, sim.slotPath("seed", L"entry-v1.exe"));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"seed"});
}

TEST(launch, showsThatThereIsNoRunnableRuntime) {
  SimOs sim;

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lines(), Lines{"No runnable runtime"});
  EXPECT_EQ(boxTexts(sim), Lines{"No runnable runtime"});
  EXPECT_EQ(sim.started(), Names{});
  EXPECT_EQ(sim.generation(), 1U) << "the first state was written all the same";
}

TEST(launch, choosesAmongTheSlotsThatAreComplete) {
  struct Case {
    const char* why;
    Names complete;
    std::string started;
  };
  const Case cases[] = {{"the candidate first", {"bbbb", "aaaa", "cccc"}, "bbbb"},
                        {"then the active one", {"aaaa", "cccc"}, "aaaa"},
                        {"then the one before", {"cccc"}, "cccc"},
                        {"then the seed", {}, "seed"}};

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.installSeed(Runtime::healthy());
    for (const std::string& slot : c.complete) sim.install(slot, Runtime::healthy());
    sim.writeBootState(storedState(5, "aaaa", "bbbb", "cccc"));

    EXPECT_EQ(sim.runLauncher(), 0);

    EXPECT_EQ(sim.started(), Names{c.started});
  }
}

TEST(launch, skipsASlotOfAnotherDeliveryWithALine) {
  SimOs sim;
  installTrusted(sim);
  sim.writeDelivery("seed", '1');
  sim.writeDelivery("aaaa", '2');

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"seed"});
  EXPECT_EQ(sim.lines(), Lines{"ignoring slot aaaa: delivery differs from seed"});
}

// --- The attempt ---

TEST(attempt, isNamedByItsNonceAndRecordsSlotNonceAndTime) {
  SimOs sim;
  installTrusted(sim);

  EXPECT_EQ(sim.runLauncher(), 0);

  const std::vector<std::wstring> names = sim.names(sim.statePath(L"attempts"));
  ASSERT_EQ(names.size(), 1U);
  EXPECT_EQ(names[0].size(), 32U);
  EXPECT_EQ(names[0].find_first_not_of(L"0123456789abcdef"), std::wstring::npos);
  const std::string nonce(names[0].begin(), names[0].end());
  EXPECT_EQ(sim.read(sim.statePath(L"attempts\\" + names[0] + L"\\boot-v1.json")),
            "{\"nonce\":\"" + nonce + "\",\"schemaVersion\":1,\"slot\":\"aaaa\",\"startedAt\":300000}");
}

TEST(attempt, leavesTheNewestOlderOneWhenOthersArePruned) {
  SimOs sim;
  installTrusted(sim);
  for (const std::wstring_view name : {L"first", L"second", L"third"}) {
    sim.makeDirectory(sim.statePath(L"attempts\\" + std::wstring(name)));
    sim.advance(1'000);
  }

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.names(sim.statePath(L"attempts")).size(), 2U);
  EXPECT_TRUE(sim.exists(sim.statePath(L"attempts\\third")));
}

TEST(attempt, thatCannotBePrunedStopsNothing) {
  SimOs sim;
  installTrusted(sim);
  for (const std::wstring_view name : {L"first", L"second"}) {
    sim.makeDirectory(sim.statePath(L"attempts\\" + std::wstring(name)));
    sim.advance(1'000);
  }
  sim.fail(Call::removeEmptyDirectory, L"first");

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.lines(), Lines{"cannot prune old attempt: Access is denied."});
}

TEST(launch, looksAtEverythingBeforeItWritesAnything) {
  SimOs sim;
  installTrial(sim, Runtime::healthy());
  std::vector<std::string> order;
  const auto mark = [&](Call call, const std::wstring& pattern, const std::string& name) {
    sim.before(call, pattern, [&order, name] { order.push_back(name); });
  };
  mark(Call::createProcess, L"", "child");
  mark(Call::replace, L"attempts\\*\\boot-v1.json", "attempt record");
  mark(Call::replace, sim.statePath(L"boot-v1.json"), "write state");
  mark(Call::status, L"bbbb\\COMPLETE-v1", "slots");
  mark(Call::listDirectory, L"attempts", "prune");
  mark(Call::random, L"", "nonce");
  mark(Call::readFile, L"pending-v1.json", "request");
  mark(Call::readFile, sim.statePath(L"boot-v1.json"), "state");

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(order, (std::vector<std::string>{"state", "request", "nonce", "prune", "slots", "write state",
                                             "attempt record", "child"}));
}

}  // namespace
}  // namespace launcher_stub
