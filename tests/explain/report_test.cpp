// The two renderings, and the command line.
#include <gtest/gtest.h>

#include "explain/command.h"
#include "explain/json_report.h"
#include "explain/text_report.h"
#include "tests/explain/watched_disk.h"
#include "tests/launcher/scenario.h"

namespace launcher_stub::explain {
namespace {

// A candidate on its second start, with a stale request and one attempt.
void layOutStory(SimOs& sim) {
  installTrial(sim, Runtime::healthy());
  BootState state = trialState();
  state.attemptCount = 1;
  state.rejected = {"dead"};
  sim.writeBootState(state);
  sim.install("cccc", Runtime::healthy);
  sim.writePending("request-1", 4, "cccc");
  sim.writeFile(sim.statePath(L"attempts\\nonce-001\\boot-v1.json"),
                sim::slotReference(Form::right, "bbbb", "nonce-001"));
  sim.writeFile(sim.statePath(L"attempts\\nonce-001\\ready-v1"), "{");
}

Answer answered(SimOs& sim, const std::vector<std::wstring>& more = {}) {
  std::vector<std::wstring> arguments = {sim.installDirectory()};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return answer(arguments, {});
}

TEST(textReport, tellsTheWholeStory) {
  SimOs sim;
  layOutStory(sim);
  sim.setStateRoot(L"C:\\root");
  layOutStory(sim);
  sim.writeBootstrap(sim::bootstrapDocument("C:\\root"));

  const Answer told = answered(sim);

  EXPECT_EQ(told.exitCode, exitStarts);
  EXPECT_EQ(told.errors, "");
  EXPECT_EQ(told.output, R"(Install directory: C:\App
State root:        C:\root (from the bootstrap)

Would start: bbbb, as candidate (start 2 of 3)
  candidate  bbbb  would start
  active     aaaa  could start, but another one comes before it
  seed       seed  could start, but another one comes before it

A request must name generation 5 to be taken in by the next start.
After the next start the generation is 5.
Pending request: request-1 for slot cccc, generation 4: would not be taken in: it names another generation; the next start removes the file

State in force: boot-v1.json
  generation 5, active aaaa, candidate bbbb (1 of 3 starts made), rejected dead

Documents:
  bootstrap-v1.json      valid
  boot-v1.json           valid
  boot-v1.previous.json  missing
  pending-v1.json        valid
  seed delivery-v1.json  missing
  bbbb delivery-v1.json  missing
  aaaa delivery-v1.json  missing
  cccc delivery-v1.json  missing

Attempts, the newest first:
  nonce-001: slot bbbb, ready no (there is an unreadable marker: object syntax), healthy no, restart not asked

Running launcher: not known on this system
)");
}

TEST(jsonReport, holdsTheSameWithStableKeys) {
  SimOs sim;
  sim.setStateRoot(L"C:\\root");
  layOutStory(sim);
  sim.writeBootstrap(sim::bootstrapDocument("C:\\root"));

  const Answer told = answered(sim, {L"--json"});

  const std::string document = R"({"condition":"missing","name":")";
  EXPECT_EQ(
      told.output,
      R"({"attempts":[{"condition":"valid","healthy":{"standing":"absent"},"name":"nonce-001","ready":{"error":"object syntax","standing":"unreadable"},"restart":{"standing":"absent"},"slot":"bbbb"}],"bootstrapUnderstood":true,"changedMeanwhile":false,"documents":[)"
      R"({"condition":"valid","name":"bootstrap-v1.json","path":"C:\\App\\bootstrap-v1.json"},{"condition":"valid","name":"boot-v1.json","path":"C:\\root\\boot-v1.json"},)" +
          document +
          R"(boot-v1.previous.json","path":"C:\\root\\boot-v1.previous.json"},)"
          R"({"condition":"valid","name":"pending-v1.json","path":"C:\\root\\pending-v1.json"},)" +
          document + R"(seed delivery-v1.json","path":"C:\\App\\seed\\delivery-v1.json"},)" + document +
          R"(bbbb delivery-v1.json","path":"C:\\root\\slots\\bbbb\\delivery-v1.json"},)" + document +
          R"(aaaa delivery-v1.json","path":"C:\\root\\slots\\aaaa\\delivery-v1.json"},)" + document +
          R"(cccc delivery-v1.json","path":"C:\\root\\slots\\cccc\\delivery-v1.json"}],"generationAfterStart":5,"installDirectory":"C:\\App","programs":null,)"
          R"("request":{"candidate":"cccc","expectedGeneration":4,"namesActive":false,"removed":true,"requestId":"request-1","standing":"staleGeneration"},"requestGeneration":5,"schemaVersion":1,)"
          R"("slots":[{"kind":"candidate","slot":"bbbb","standing":"starts"},{"kind":"active","slot":"aaaa","standing":"comesAfter"},{"kind":"seed","slot":"seed","standing":"comesAfter"}],)"
          R"("start":{"candidateStart":2,"kind":"candidate","slot":"bbbb"},"state":{"active":"aaaa","attemptCount":1,"candidate":"bbbb","generation":5,"rejected":["dead"],"schemaVersion":1},"stateFrom":"current","stateRoot":"C:\\root","stateRootFrom":"bootstrap","stateRootIsThere":true,"unnamedSlots":[]})"
          "\n");
}

TEST(jsonReport, saysNullAndGivesTheMessageWhereNothingStarts) {
  SimOs sim;

  const Answer told = answered(sim, {L"--json"});

  EXPECT_EQ(told.exitCode, exitNothingStarts);
  EXPECT_NE(told.output.find("\"message\":\"No runnable runtime\""), std::string::npos) << told.output;
  EXPECT_NE(told.output.find("\"start\":null"), std::string::npos) << told.output;
  EXPECT_NE(told.output.find("\"requestGeneration\":null"), std::string::npos) << told.output;
}

TEST(textReport, saysItLoudlyWhereNothingStarts) {
  SimOs sim;

  const Answer told = answered(sim);

  EXPECT_EQ(told.exitCode, exitNothingStarts);
  EXPECT_NE(told.output.find("NOTHING would start: \"No runnable runtime\"\n"), std::string::npos) << told.output;
}

TEST(reports, showPathsInOtherLettersAndNameWhatIsNoText) {
  SimOs sim;
  sim.installSeed(Runtime::healthy);
  const std::wstring letters = L"C:\\\u0410\u043d\u043d\u0430 \U0001F388";
  sim.setStateRoot(letters);
  const std::string utf8 = "C:\\\u0410\u043d\u043d\u0430 \U0001F388";

  const Answer text = answered(sim, {L"--state-root", letters});
  const Answer broken = answered(sim, {L"--state-root", L"C:\\\xD800"});

  EXPECT_NE(text.output.find("State root:        " + utf8 + " (as named on the command line; it is not there)\n"),
            std::string::npos)
      << text.output;
  EXPECT_NE(broken.output.find("State root:        (not valid text) ("), std::string::npos) << broken.output;
}

TEST(reports, nameTheProgramsThatRunFromTheInstallDirectory) {
  SimOs sim;
  sim.installSeed(Runtime::healthy);
  const Host some{.programsIn = [](const std::wstring& directory) -> std::optional<std::vector<ProgramFinding>> {
    return std::vector<ProgramFinding>{{77, directory + L"\\launcher.exe"}};
  }};
  const Host none{.programsIn = [](const std::wstring&) -> std::optional<std::vector<ProgramFinding>> {
    return std::vector<ProgramFinding>{};
  }};

  const std::string text = answer({sim.installDirectory()}, some).output;
  const std::string json = answer({sim.installDirectory(), L"--json"}, some).output;
  const std::string empty = answer({sim.installDirectory()}, none).output;

  EXPECT_NE(text.find("the lock is not touched):\n  process 77: C:\\App\\launcher.exe\n"), std::string::npos) << text;
  EXPECT_NE(json.find(R"("programs":[{"path":"C:\\App\\launcher.exe","processId":77}])"), std::string::npos) << json;
  EXPECT_NE(empty.find("no program runs from the install directory"), std::string::npos) << empty;
}

TEST(commandLine, isRefusedWithTwoWhereItIsWrong) {
  struct Case {
    const char* why;
    std::vector<std::wstring> arguments;
    std::string errors;
  };
  const Case cases[] = {
      {"nothing", {}, "name one install directory"},
      {"an empty one", {L""}, "name one install directory"},
      {"two", {L"C:\\App", L"C:\\Other"}, "name one install directory"},
      {"no directory", {L"C:\\App", L"--state-root"}, "--state-root needs a directory"},
      {"an empty directory", {L"C:\\App", L"--state-root", L""}, "--state-root needs a directory"},
      {"unknown", {L"C:\\App", L"--repair"}, "unknown option: --repair"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;

    const Answer told = answer(c.arguments, {});

    EXPECT_EQ(told.exitCode, exitUsage);
    EXPECT_EQ(told.errors, "launcher-explain: " + c.errors + "; see launcher-explain --help\n");
    EXPECT_EQ(told.output, "");
  }
}

TEST(commandLine, givesHelpWithTheExitCodes) {
  SimOs sim;

  const Answer told = answer({L"--help"}, {});

  EXPECT_EQ(told.exitCode, exitStarts);
  EXPECT_NE(told.output.find("Exit codes: 0 something would start, 3 nothing would start, 2 "), std::string::npos);
}

TEST(unreadableInstall, isRefusedWithTwoAndTheLaunchersOwnWords) {
  struct Case {
    const char* why;
    std::string bootstrap;
    std::string errors;
  };
  const Case cases[] = {{"missing", "", "missing bootstrap-v1.json"},
                        {"invalid", "{\"schemaVersion\":1}", "invalid bootstrap-v1.json: invalid installId"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.remove(sim.installPath(L"bootstrap-v1.json"));
    if (!c.bootstrap.empty()) sim.writeBootstrap(c.bootstrap);

    const Answer told = answered(sim);
    sim.runLauncher();

    EXPECT_EQ(told.exitCode, exitUsage);
    EXPECT_EQ(told.errors, "launcher-explain: " + c.errors + "\n");
    EXPECT_EQ(boxTexts(sim), (Lines{c.errors}));
  }
}

TEST(copies, needTheirStateRootNamedWhereTheBootstrapNamesOneOfAnotherMachine) {
  struct Case {
    const char* why;
    std::optional<std::string> stateRoot;
    std::string errors;
  };
  const Case cases[] = {
      {"a drive", "D:\\state",
       "the state root that the bootstrap names lies on another machine: D:\\state; name the copy with --state-root "
       "DIR"},
      {"the default", std::nullopt,
       "the bootstrap names no state root, and the default one lies on another machine; name the copy with "
       "--state-root DIR"},
      {"beside the launcher", "state", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.installSeed(Runtime::healthy);
    sim.writeBootstrap(sim::bootstrapDocument(c.stateRoot));

    const Answer told = answer({sim.installDirectory()}, {.looksAtCopies = true});
    const Answer named = answer({sim.installDirectory(), L"--state-root", L"C:\\copy"}, {.looksAtCopies = true});

    EXPECT_EQ(told.exitCode, c.errors.empty() ? exitStarts : exitUsage);
    EXPECT_EQ(told.errors, c.errors.empty() ? "" : "launcher-explain: " + c.errors + "\n");
    EXPECT_EQ(named.exitCode, exitStarts) << named.errors;
  }
}

}  // namespace
}  // namespace launcher_stub::explain
