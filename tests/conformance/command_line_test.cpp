// Mistakes in the command line end the kit with 2 and a line about them.

#include <gtest/gtest.h>

#include "tests/conformance/kit.h"

namespace conformance_tests {
namespace {

TEST(kitCommandLine, refusesWhatItDoesNotUnderstand) {
  Integrator integrator("");
  const std::wstring launcher = L" --launcher \"" + launcherPath() + L"\"";
  const std::wstring seed = L" --seed \"" + integrator.seed() + L"\"";
  struct Case {
    const char* why;
    std::wstring commandLine;
    std::string problem;
  };
  const Case cases[] = {
      {"nothing at all", L"", "--launcher and --seed are needed"},
      {"no seed", launcher, "--launcher and --seed are needed"},
      {"no launcher", seed, "--launcher and --seed are needed"},
      {"no such launcher", seed + L" --launcher nowhere.exe", "there is no file "},
      {"no such seed", launcher + L" --seed C:\\nowhere", "there is no file C:\\nowhere\\entry-v1.exe"},
      {"a duty that is none", launcher + seed + L" --only ready,steady", "there is no duty \"steady\""},
      {"no duty", launcher + seed + L" --only \"\"", "there is no duty \"\""},
      {"no number", launcher + seed + L" --ready-within soon", "--ready-within takes a number of milliseconds"},
      {"a number and more", launcher + seed + L" --healthy-within 5s", "--healthy-within takes a number of"},
      {"too large", launcher + seed + L" --close-within 4294967296", "--close-within takes a number of"},
      {"an option without its value", launcher + seed + L" --json", "--json needs a value"},
      {"an unknown option", launcher + seed + L" --fast yes", "unknown option \"--fast\""},
      {"an argument alone", launcher + seed + L" seed", "unknown argument \"seed\""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const KitRun run = integrator.runBare(c.commandLine);
    EXPECT_EQ(run.exitCode, 2U);
    EXPECT_NE(run.errors.find("conformance: " + c.problem), std::string::npos) << run.errors;
    EXPECT_NE(run.errors.find("\n--help tells the options\n"), std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.find("usage: conformance"), std::string::npos);
    EXPECT_EQ(run.table, "");
  }
}

TEST(kitCommandLine, needsAProgramInTheSeed) {
  Integrator integrator("");
  integrator.remove(L"entry-v1.exe");

  const KitRun run = integrator.run(L"");

  EXPECT_EQ(run.exitCode, 2U);
  EXPECT_NE(run.errors.find("\\seed\\entry-v1.exe"), std::string::npos) << run.errors;
}

TEST(kitCommandLine, saysWhenItsOwnPartFails) {
  const Integrator integrator("ready\nsleep 200000\n");

  const KitRun run = integrator.run(L"--only starts --work \"" + integrator.seed() + L"\\script.txt\"");

  EXPECT_EQ(run.exitCode, 2U);
  EXPECT_EQ(run.errors.find("conformance: cannot create "), 0U) << run.errors;
}

TEST(kitCommandLine, tellsItsOptionsWhenAsked) {
  Integrator integrator("");
  const struct {
    const char* why;
    std::wstring commandLine;
  } cases[] = {
      {"alone", L" --help"},
      {"behind an option", L" --keep --help"},
      {"before something that is wrong", L" --help --seed C:\\nowhere --fast yes"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const KitRun run = integrator.runBare(c.commandLine);
    EXPECT_EQ(run.exitCode, 0U);
    EXPECT_EQ(run.table.find("usage: conformance"), 0U) << run.table;
    EXPECT_EQ(run.errors, "");
  }
}

TEST(kitCommandLine, takesHelpAsAValueWhereOneIsDue) {
  Integrator integrator("");
  const KitRun run = integrator.runBare(L" --arguments --help");
  EXPECT_EQ(run.exitCode, 2U);
  EXPECT_EQ(run.table, "");
}

TEST(kitCommandLine, namesEveryDutyInItsUsage) {
  const Integrator integrator("");
  const KitRun run = integrator.runBare(L" --help");
  for (const char* duty : {"starts", "ready", "slot-and-nonce", "held-record", "lease", "state-files",
                           "ends-when-asked", "exit-code", "no-process-left", "healthy", "update"}) {
    EXPECT_NE(run.table.find(std::string("\n  ") + duty + " "), std::string::npos) << duty;
  }
}

}  // namespace
}  // namespace conformance_tests
