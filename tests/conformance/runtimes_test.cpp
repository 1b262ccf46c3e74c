// The kit and a good dozen of runtimes, each of which breaks one duty: that one is reported, and no other.

#include <gtest/gtest.h>

#include "tests/conformance/kit.h"

namespace conformance_tests {
namespace {

// What is seen in one run that takes a few seconds.
const std::wstring ofOneRun =
    L"--only starts,ready,slot-and-nonce,lease,state-files,ends-when-asked,exit-code,no-process-left";

const std::string staysUntilAsked = "wait 200000 finish\nexit 7\n";

struct Expected {
  std::string duty;
  std::string verdict;
  std::string detail;  // a part of it
};

struct Case {
  std::string name;
  std::string why;
  std::string script;
  std::wstring options;  // which duties, and limits
  // All that were asked for and are not named here are passed.
  std::vector<Expected> expected = {};
};

void PrintTo(const Case& c, std::ostream* stream) { *stream << c.why; }

const std::vector<Expected> neverReady = {{"ready", "failed", "no ready-v1 after 2000 ms"},
                                          {"slot-and-nonce", "notJudged", "no whole ready-v1"},
                                          {"exit-code", "notJudged", "never ready"}};

std::vector<Expected> nothingStarts(const std::string& detail) {
  std::vector<Expected> all = {{"starts", "failed", detail}};
  for (const char* duty :
       {"ready", "slot-and-nonce", "lease", "state-files", "ends-when-asked", "exit-code", "no-process-left"}) {
    all.push_back({duty, "notJudged", "does not start"});
  }
  return all;
}

std::vector<Expected> foreignReady(const std::string& detail) {
  return {{"slot-and-nonce", "failed", detail}, {"exit-code", "notJudged", "never ready"}};
}

const Case cases[] = {
    {"keepsAllDuties", "a right one, asked by a command", "ready\n" + staysUntilAsked, ofOneRun + closeByFile},
    {"closesItsWindow", "a right one with a window", "ready\nwindow 200000\nexit 3\n", ofOneRun},
    {"showsItsWindowLate", "a right one whose window comes when it is ready already",
     "ready\nsleep 2500\nwindow 200000\n", ofOneRun},
    {"toleratesAHeldRecord", "a right one that tries again", "ready\n" + staysUntilAsked, L"--only held-record"},
    {"isHealthy", "a right one as a candidate", "ready\nsleep 500\nhealthy\n" + staysUntilAsked,
     L"--only healthy --healthy-within 60000"},

    {"isNeverReady", "no marker at all", staysUntilAsked, ofOneRun + closeByFile + L" --ready-within 2000", neverReady},
    {"isReadyLate",
     "the marker comes after the limit",
     "sleep 20000\nready\n" + staysUntilAsked,
     ofOneRun + L" --ready-within 2000",
     {neverReady[0],
      neverReady[1],
      neverReady[2],
      {"ends-when-asked", "notJudged", "no visible window, and there is no --close-command"}}},
    {"namesAForeignNonce", "the marker of another start", "ready foreign-nonce\n" + staysUntilAsked,
     ofOneRun + closeByFile, foreignReady("names the nonce ")},
    {"namesAnotherSlot", "the marker of another slot", "ready other-slot\n" + staysUntilAsked, ofOneRun + closeByFile,
     foreignReady("names the slot 0123abcd, this one is seed")},
    {"writesHalfAMarker",
     "a marker that ends in the middle",
     "ready half\n" + staysUntilAsked,
     ofOneRun + closeByFile + L" --ready-within 2000",
     {{"ready", "failed", "ready-v1 is not a whole document: "}, neverReady[1], neverReady[2]}},
    {"holdsItsMarker",
     "a marker that the launcher cannot open",
     "hold 200000 {attempt}\\ready-v1\n" + staysUntilAsked,
     ofOneRun + closeByFile + L" --ready-within 2000",
     {{"ready", "failed", "ready-v1 cannot be opened by the launcher: Win32 error 32"}, neverReady[1], neverReady[2]}},
    {"endsAtOnce", "an end before it is ready", "exit 3\n", ofOneRun, nothingStarts("ended before it was ready")},
    {"crashes", "a crash before it is ready", "sleep 1500\ncrash\n", ofOneRun,
     nothingStarts("ended before it was ready, with exit code 3221225477")},
    {"sharesItsLease",
     "the lease stays inheritable",
     "share-lease\nready\n" + staysUntilAsked,
     ofOneRun + closeByFile,
     {{"lease", "failed", "the lease is still inheritable"}}},
    {"handsItsLeaseOn",
     "a child has inherited the lease",
     "share-lease\ngrandchild 200000\nready\n" + staysUntilAsked,
     ofOneRun + closeByFile,
     {{"lease", "failed", "a process that it started has the lease: entry-v1.exe"},
      {"no-process-left", "warned", "the launcher had to end what was left: entry-v1.exe"}}},
    {"leavesAGrandchild",
     "a child outlives it",
     "grandchild 200000\nready\n" + staysUntilAsked,
     ofOneRun + closeByFile,
     {{"no-process-left", "warned", "the launcher had to end what was left: entry-v1.exe"}}},
    {"handsOver",
     "a short-lived starter of the real program",
     "ready\nsleep 300\ngrandchild 200000\nsleep 200\n",
     L"--only starts,ends-when-asked,exit-code,no-process-left",
     {{"ends-when-asked", "notJudged", "it ended by itself, with exit code 0"},
      {"no-process-left", "warned", "the launcher had to end what was left: entry-v1.exe"}}},
    {"holdsTheBootState",
     "a state file stays open",
     "ready\nhold 200000 {state}\\boot-v1.json\n" + staysUntilAsked,
     ofOneRun + closeByFile,
     {{"state-files", "failed", "boot-v1.json was held for more than 3000 ms"}}},
    {"ignoresClose",
     "a window that does not close",
     "ready\nwindow 200000 ignore-close\n",
     ofOneRun + L" --close-within 3000",
     {{"ends-when-asked", "failed", "after it was asked to end"}}},
    {"restartsAtEachEnd",
     "a restart request at each end",
     "ready\nwait 200000 finish\nrestart -\nexit 0\n",
     ofOneRun + closeByFile,
     {{"exit-code", "failed", "the launcher started a runtime again"},
      {"no-process-left", "notJudged", "started a runtime again"}}},
    {"givesUpOnAHeldRecord",
     "one try to read the record",
     "impatient\nready\n" + staysUntilAsked,
     L"--only starts,ready,held-record",
     {{"held-record", "failed", "ended while the file was held, with exit code 66"}}},
    {"isNeverHealthy",
     "a candidate without its marker",
     "ready\n" + staysUntilAsked,
     L"--only healthy,update --healthy-within 2000",
     {{"healthy", "failed", "no healthy-v1 after 2"}, {"update", "notJudged", "not healthy"}}},
    {"isHealthyLate",
     "a candidate whose marker comes after the limit",
     "sleep 20000\nhealthy\n" + staysUntilAsked,
     L"--only healthy --healthy-within 2000",
     {{"healthy", "failed", "no healthy-v1 after 2"}}},
    {"isHealthyUnderAForeignNonce",
     "a candidate with the marker of another start",
     "healthy foreign-nonce\n" + staysUntilAsked,
     L"--only healthy",
     {{"healthy", "failed", "names the nonce "}}},
    {"endsBeforeItIsHealthy",
     "a candidate that ends",
     "sleep 1500\nexit 5\n",
     L"--only healthy",
     {{"healthy", "failed", "without healthy-v1 (exit code 5)"}}},
    {"endsBeforeItIsPromoted",
     "a candidate that is healthy and ends",
     "healthy\nsleep 4000\nexit 5\n",
     L"--only healthy,update",
     {{"update", "failed", "(exit code 5); a candidate has to run for 60 s"}}},
};

class theKit : public testing::TestWithParam<Case> {};

TEST_P(theKit, reportsWhatIsBrokenAndNothingElse) {
  const Case& c = GetParam();
  const Integrator integrator(c.script);

  const KitRun run = integrator.run(c.options);

  SCOPED_TRACE(run.table + run.errors);
  ASSERT_FALSE(run.report.empty());
  bool failing = false;
  Report others = run.report;
  for (const Expected& expected : c.expected) {
    SCOPED_TRACE(expected.duty);
    ASSERT_TRUE(others.contains(expected.duty));
    EXPECT_EQ(others[expected.duty].verdict, expected.verdict);
    EXPECT_NE(others[expected.duty].detail.find(expected.detail), std::string::npos) << others[expected.duty].detail;
    failing = failing || expected.verdict == "failed";
    others.erase(expected.duty);
  }
  for (const auto& [duty, judged] : others) EXPECT_EQ(judged.verdict, "passed") << duty << ": " << judged.detail;
  EXPECT_EQ(run.exitCode, failing ? 1U : 0U);
}

INSTANTIATE_TEST_SUITE_P(runtime, theKit, testing::ValuesIn(cases),
                         [](const testing::TestParamInfo<Case>& found) { return found.param.name; });

TEST(storyConformance, aRightRuntimeKeepsEveryDutyAndUpdatesToItself) {
  const Integrator integrator("ready\nhealthy\nwindow 200000\nexit 7\n");

  const KitRun run = integrator.run(L"");

  SCOPED_TRACE(run.table + run.errors);
  EXPECT_EQ(run.exitCode, 0U);
  EXPECT_EQ(run.report.size(), 11U);
  for (const auto& [duty, judged] : run.report) EXPECT_EQ(judged.verdict, "passed") << duty << ": " << judged.detail;
  EXPECT_EQ(run.report.at("update").detail.substr(0, 9), "promoted ");
  EXPECT_EQ(run.report.at("exit-code").detail, "both ended with 7");
  EXPECT_NE(run.table.find("11 passed, 0 warned, 0 failed, 0 not judged"), std::string::npos);
}

TEST(theKitAlone, saysWhereTheExecutableIsNone) {
  Integrator integrator("");
  integrator.write(L"entry-v1.exe", "this is no program");

  const KitRun run = integrator.run(L"--only starts");

  EXPECT_EQ(run.exitCode, 1U);
  const Judged judged = run.report.at("starts");
  EXPECT_EQ(judged.verdict, "failed");
  EXPECT_EQ(judged.detail.substr(0, 32), "the launcher says: cannot start ");
}

TEST(theKitAlone, terminatesWhatCannotBeAskedAndKnowsTheExitCode) {
  const Integrator integrator("ready\nsleep 200000\n");

  const KitRun run = integrator.run(L"--only ends-when-asked,exit-code");

  EXPECT_EQ(run.exitCode, 0U);
  EXPECT_EQ(run.report.at("ends-when-asked").verdict, "notJudged");
  EXPECT_EQ(run.report.at("exit-code").detail, "both ended with 4242");
}

TEST(theKitAlone, handsArgumentsToTheRuntimeAndLeavesItsFilesWhenAsked) {
  const Integrator integrator("report\nready\nsleep 200000\n");

  const KitRun run = integrator.run(LR"(--only ready --keep --arguments "--name \"two words\"")");

  EXPECT_EQ(run.exitCode, 0U);
  const std::vector<std::wstring> left = launcher_stub::tests::namesIn(integrator.work());
  ASSERT_EQ(left.size(), 1U);
  const std::wstring attempts = integrator.work() + L"\\" + left.front() + L"\\state\\attempts";
  const std::vector<std::wstring> starts = launcher_stub::tests::namesIn(attempts);
  ASSERT_EQ(starts.size(), 1U);
  const std::string log = launcher_stub::tests::readFile(attempts + L"\\" + starts.front() + L"\\runtime.log").value();
  EXPECT_NE(log.find("argument --name\n"), std::string::npos) << log;
  EXPECT_NE(log.find("argument two words\n"), std::string::npos) << log;
}

TEST(theKitAlone, leavesNothingBehind) {
  const Integrator integrator("ready\nsleep 200000\n");

  const KitRun run = integrator.run(L"--only ready,held-record");

  EXPECT_EQ(run.exitCode, 0U);
  EXPECT_TRUE(launcher_stub::tests::namesIn(integrator.work()).empty());
}

}  // namespace
}  // namespace conformance_tests
