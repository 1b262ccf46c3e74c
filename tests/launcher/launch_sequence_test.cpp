#include "launcher/launch_sequence.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/launcher/scenario.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub {
namespace {

using sim::bootstrapDocument;

// The run ends before any start, with one box whose text is also the one line.
void expectBoxAndCodeOne(SimOs& sim, const std::string& text) {
  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lines(), Lines{text});
  EXPECT_EQ(boxTexts(sim), Lines{text});
  EXPECT_EQ(sim.started(), Names{});
}

// --- The bootstrap ---

TEST(startUp, showsThatTheBootstrapIsMissing) {
  SimOs sim;
  sim.remove(sim.installPath(L"bootstrap-v1.json"));

  expectBoxAndCodeOne(sim, "missing bootstrap-v1.json");

  EXPECT_FALSE(sim.exists(sim.stateRoot())) << "nothing has been touched";
}

TEST(startUp, takesABootstrapThatCannotBeReadWholeForMissing) {
  struct Case {
    const char* why;
    std::function<void(SimOs&)> spoil;
  };
  const Case cases[] = {
      {"not readable", [](SimOs& sim) { sim.fail(Call::readFile, L"bootstrap-v1.json"); }},
      {"larger than any document", [](SimOs& sim) { sim.writeBootstrap(std::string(65537, ' ')); }},
      {"the executable's path cannot be had", [](SimOs& sim) { sim.setExecutablePath(L""); }},
      {"the query for the path fails", [](SimOs& sim) { sim.fail(Call::executablePath); }},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    c.spoil(sim);
    expectBoxAndCodeOne(sim, "missing bootstrap-v1.json");
  }
}

TEST(startUp, saysWhatIsWrongWithTheBootstrap) {
  struct Case {
    const char* why;
    std::string document;
    std::string text;
  };
  const Case cases[] = {
      {"empty", "", "missing value"},
      {"data behind it", bootstrapDocument() + "x", "trailing data"},
      {"an array", "[]", "expected object"},
      {"no version", "{}", "missing schemaVersion"},
      {"no whole version", "{\"schemaVersion\":1.0}", "invalid schemaVersion"},
      {"no installation id", "{\"schemaVersion\":1}", "invalid installId"},
      {"no seed", "{\"schemaVersion\":1,\"installId\":\"i\"}", "invalid seedSlot"},
      {"another seed", "{\"schemaVersion\":1,\"installId\":\"i\",\"seedSlot\":\"Seed\"}", "invalid bootstrap"},
      {"a state root of another type",
       "{\"schemaVersion\":1,\"installId\":\"i\",\"seedSlot\":\"seed\",\"stateRoot\":null}", "invalid stateRoot"},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.writeBootstrap(c.document);
    expectBoxAndCodeOne(sim, "invalid bootstrap-v1.json: " + c.text);
    EXPECT_FALSE(sim.exists(sim.stateRoot()));
  }
}

TEST(startUp, honoursTheStateRootOfTheBootstrap) {
  for (const int version : {1, 2}) {
    SCOPED_TRACE("bootstrap of major version " + std::to_string(version));
    SimOs sim;
    sim.writeBootstrap(bootstrapDocument("C:\\elsewhere", version));
    sim.setStateRoot(L"C:\\elsewhere");
    sim.installSeed(readyAndEnding(1'000));

    EXPECT_EQ(sim.runLauncher(), 0);

    EXPECT_EQ(sim.started(), Names{"seed"});
    EXPECT_EQ(sim.starts().at(0).stateRoot, L"C:\\elsewhere");
    EXPECT_EQ(sim.generation(), 1U);
  }
}

TEST(startUp, takesAStateRootThatIsNotAbsoluteRelativeToTheInstallDirectory) {
  SimOs sim;
  sim.writeBootstrap(bootstrapDocument("data"));
  sim.setStateRoot(L"C:\\App\\data");
  sim.installSeed(readyAndEnding(1'000));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.generation(), 1U);
}

TEST(startUp, fallsBackToTheDefaultRootWhereANewerBootstrapNamesNone) {
  struct Case {
    const char* why;
    std::string document;
  };
  const Case cases[] = {
      {"none named", bootstrapDocument(std::nullopt, 2)},
      {"of another type", "{\"schemaVersion\":2,\"stateRoot\":7}"},
      {"one level down", "{\"schemaVersion\":2,\"paths\":{\"stateRoot\":\"D:\\\\x\"}}"},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.writeBootstrap(c.document);
    sim.installSeed(readyAndEnding(1'000));

    EXPECT_EQ(sim.runLauncher(), 0);

    EXPECT_EQ(sim.generation(), 1U) << "in " << sim::printable(sim.stateRoot());
    EXPECT_EQ(sim.lines(), Lines{});
  }
}

TEST(startUp, usesNothingElseOfANewerBootstrap) {
  SimOs sim;
  sim.writeBootstrap("{\"schemaVersion\":2,\"installId\":5,\"seedSlot\":\"cccc\"}");
  sim.installSeed(readyAndEnding(1'000));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.started(), Names{"seed"});
}

// --- The state root ---

TEST(startUp, showsThatTheStateRootCannotBeCreated) {
  struct Case {
    const char* why;
    std::function<void(SimOs&)> spoil;
    bool root, attempts, slots;  // what is there afterwards
  };
  const Case cases[] = {
      {"no place for it", [](SimOs& sim) { sim.removeVariable(L"LOCALAPPDATA"); }, false, false, false},
      {"the root fails", [](SimOs& sim) { sim.fail(Call::createPrivateDirectory, sim.stateRoot()); }, false, false,
       false},
      {"attempts fails", [](SimOs& sim) { sim.fail(Call::createPrivateDirectory, L"attempts"); }, true, false, false},
      {"slots fails", [](SimOs& sim) { sim.fail(Call::createPrivateDirectory, L"slots"); }, true, true, false},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.installSeed(readyAndEnding(1'000));
    c.spoil(sim);
    expectBoxAndCodeOne(sim, "cannot create private state root");
    EXPECT_EQ(sim.exists(sim.stateRoot()), c.root);
    EXPECT_EQ(sim.exists(sim.statePath(L"attempts")), c.attempts);
    EXPECT_EQ(sim.exists(sim.statePath(L"slots")), c.slots);
    EXPECT_EQ(sim.count(Call::openLock), 0) << "the lease comes later";
  }
}

TEST(startUp, saysThatADirectoryBelongsToAnotherAccount) {
  for (const std::wstring_view name : {L"", L"\\attempts", L"\\slots"}) {
    SCOPED_TRACE(sim::printable(name));
    SimOs sim;
    const std::wstring directory = sim.stateRoot() + std::wstring(name);
    sim.makeDirectory(directory);
    sim.setOwner(directory, sim::Owner::otherAccount);

    EXPECT_EQ(sim.runLauncher(), 1);

    EXPECT_EQ(sim.lines(), (Lines{"state root belongs to another account", "cannot create private state root"}));
    EXPECT_EQ(boxTexts(sim), Lines{"cannot create private state root"});
  }
}

// --- The lease ---

TEST(startUp, endsSilentlyWithZeroWhereAnotherLauncherHoldsTheLease) {
  SimOs sim;
  installTrusted(sim);
  sim.holdFile(sim.statePath(L"launch.lock"));

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.lines(), Lines{});
  EXPECT_EQ(boxTexts(sim), Lines{});
  EXPECT_EQ(sim.started(), Names{});
  EXPECT_EQ(sim.count(Call::lockTry), 1) << "it does not wait";
  EXPECT_EQ(sim.lastRun().returnedAt, sim.lastRun().startedAt);
  EXPECT_EQ(sim.generation(), 5U);
}

TEST(startUp, showsThatTheLeaseCannotBeHadForAnotherReason) {
  SimOs sim;
  installTrusted(sim);
  sim.fail(Call::lockTry, L"launch.lock", sim::win32::accessDenied);

  expectBoxAndCodeOne(sim, "cannot acquire launch lease");

  EXPECT_EQ(sim.count(Call::lockTry), 1);
}

TEST(startUp, holdsTheLeaseUntilTheRunEnds) {
  SimOs sim;
  installTrusted(sim);
  int seen = 0;
  for (const int ms : {1, 45'000, 89'999}) {
    sim.after(static_cast<std::uint64_t>(ms), [&] { seen += sim.launcherHolds(L"launch.lock") ? 1 : 0; });
  }

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(seen, 3);
  EXPECT_FALSE(sim.launcherHolds(L"launch.lock"));
}

// --- The state lock ---

TEST(startUp, givesUpAStateLockThatStaysHeldAfterFiveSeconds) {
  SimOs sim;
  installTrusted(sim);
  sim.holdFor(sim.statePath(L"state.lock"), 5'100);

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lines(), Lines{"state lock timeout"});
  EXPECT_EQ(boxTexts(sim), Lines{}) << "a line, no box";
  EXPECT_EQ(sim.started(), Names{});
  EXPECT_EQ(sim.lastRun().returnedAt - sim.lastRun().startedAt, 5'000U);
  EXPECT_EQ(sim.generation(), 5U);
}

TEST(startUp, waitsForAStateLockThatIsHeldForAMoment) {
  SimOs sim;
  installTrusted(sim);
  sim.holdFor(sim.statePath(L"state.lock"), 4'900);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(startTimes(sim), Times{4'900});
  EXPECT_EQ(sim.lines(), Lines{});
}

TEST(startUp, doesNotWaitForAStateLockThatCannotBeOpenedAtAll) {
  SimOs sim;
  installTrusted(sim);
  sim.fail(Call::lockTry, L"state.lock", sim::win32::accessDenied);

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lines(), Lines{"state lock timeout"});
  EXPECT_EQ(sim.lastRun().returnedAt, sim.lastRun().startedAt);
}

// --- The whole of it ---

TEST(startUp, goesThroughItsStepsInOrder) {
  SimOs sim;
  installTrusted(sim);
  std::vector<std::string> order;
  const auto mark = [&](Call call, const std::wstring& pattern, const std::string& name) {
    sim.before(call, pattern, [&order, name] { order.push_back(name); });
  };
  mark(Call::createProcess, L"", "child");
  mark(Call::containProcess, L"", "own job");
  mark(Call::openLock, L"state.lock", "state lock");
  mark(Call::openLock, L"launch.lock", "lease");
  mark(Call::createPrivateDirectory, L"slots", "slots");
  mark(Call::createPrivateDirectory, L"attempts", "attempts");
  mark(Call::createPrivateDirectory, sim.stateRoot(), "root");
  mark(Call::readFile, L"bootstrap-v1.json", "bootstrap");
  mark(Call::readFile, sim.statePath(L"boot-v1.json"), "state");

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(order, (std::vector<std::string>{"bootstrap", "root", "attempts", "slots", "lease", "state lock", "own job",
                                             "state", "child"}));
}

TEST(run, ignoresBothArgumentsOfTheEntryPoint) {
  SimOs sim;
  sim.installSeed(readyAndEnding(1'000, 4));
  int anything = 0;

  EXPECT_EQ(sim.runProcess([&] { return run(&anything, &anything); }), 4);
}

TEST(run, returnsTheRuntimesExitCode) {
  struct Case {
    const char* why;
    std::uint32_t code;
    int result;
  };
  const Case cases[] = {{"success", 0, 0},
                        {"a code of its own", 7, 7},
                        {"an access violation", 0xC0000005U, -1073741819},
                        {"all bits", 0xFFFFFFFFU, -1}};

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.installSeed(readyAndEnding(1'000, c.code));
    EXPECT_EQ(sim.runLauncher(), c.result);
    EXPECT_EQ(sim.lines(), Lines{});
    EXPECT_EQ(boxTexts(sim), Lines{});
  }
}

TEST(run, handsItsArgumentsToTheRuntime) {
  SimOs sim;
  sim.installSeed(readyAndEnding(1'000));
  const std::vector<std::wstring> arguments = {L"plain", L"with space", L"", L"\"quoted\"", L"\x43f\x443\x442\x44c"};
  sim.setArguments(arguments);

  EXPECT_EQ(sim.runLauncher(), 0);

  EXPECT_EQ(sim.starts().at(0).arguments, arguments);
  EXPECT_EQ(sim.starts().at(0).executable, L"C:\\App\\seed\\entry-v1.exe");
}

TEST(run, tellsTheRuntimeWhereItRuns) {
  SimOs sim;
  sim.installSeed(readyAndEnding(1'000));
  sim.setVariable(L"QUORVEX_BOOT_LEASE", L"stale");
  sim.setVariable(L"KEPT", L"yes");

  EXPECT_EQ(sim.runLauncher(), 0);

  const sim::Start& start = sim.starts().at(0);
  EXPECT_EQ(start.variable(L"QUORVEX_BOOT_STATE_ROOT"), start.stateRoot);
  EXPECT_EQ(start.variable(L"QUORVEX_BOOT_ATTEMPT_DIR"), start.attemptDirectory);
  EXPECT_EQ(start.variable(L"QUORVEX_BOOT_INSTALL_DIR"), sim.installDirectory());
  EXPECT_EQ(start.variable(L"QUORVEX_BOOT_LEASE"), std::to_wstring(start.leaseHandle));
  EXPECT_TRUE(start.leaseInherited);
  EXPECT_EQ(start.variable(L"KEPT"), L"yes");
}

TEST(run, releasesTheStateLockBeforeTheLeaseWhenAnExceptionEndsIt) {
  SimOs sim;
  sim.installSeed(Runtime::healthy());
  sim.fail(Call::random);

  EXPECT_EQ(sim.runLauncher(), 3);

  const auto closing = [&](std::wstring_view lock) {
    return sim.trace().find("close handle " + sim::printable(sim::pathKey(sim.statePath(lock))));
  };
  EXPECT_NE(sim.lastRun().uncaught, "");
  EXPECT_EQ(boxTexts(sim), Lines{});
  EXPECT_NE(closing(L"launch.lock"), std::string::npos) << sim.trace();
  EXPECT_LT(closing(L"state.lock"), closing(L"launch.lock")) << sim.trace();
}

}  // namespace
}  // namespace launcher_stub
