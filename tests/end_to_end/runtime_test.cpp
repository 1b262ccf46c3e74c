// What the runtime is given and what comes back from it.

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/end_to_end/harness.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Lines = std::vector<std::string>;

std::uint32_t exitCodeOfRunWith(const std::string& end) {
  Installation installation;
  installation.installSeed(startsUpAndEnds(end));
  Launcher launcher = installation.start();
  const std::uint32_t code = launcher.exitCode();
  EXPECT_EQ(installation.startedSlots(), Lines{"seed"});
  EXPECT_EQ(launcher.rawErrors(), "");
  return code;
}

TEST(exitCode, zeroComesBack) { EXPECT_EQ(exitCodeOfRunWith("exit 0"), 0U); }

TEST(exitCode, sevenComesBack) { EXPECT_EQ(exitCodeOfRunWith("exit 7"), 7U); }

TEST(exitCode, aboveTheSignedRangeComesBackWithAllItsBits) {
  EXPECT_EQ(exitCodeOfRunWith("exit 0xC0000005"), 0xC0000005U);
}

TEST(exitCode, ofAnAccessViolationComesBack) { EXPECT_EQ(exitCodeOfRunWith("crash"), 0xC0000005U); }

TEST(arguments, arriveUnchanged) {
  // Each as the launcher's own command line has it, and as it is meant.
  struct Case {
    const char* why;
    std::wstring written;
    std::wstring meant;
  };
  const Case cases[] = {
      {"plain", L"plain", L"plain"},
      {"with spaces", L"\"with two spaces\"", L"with two spaces"},
      {"empty", L"\"\"", L""},
      {"a quote", L"say\\\"hi\\\"", L"say\"hi\""},
      {"one quote alone", L"\\\"", L"\""},
      {"backslashes", L"a\\b\\\\c", L"a\\b\\\\c"},
      {"backslash at the end", L"C:\\dir\\", L"C:\\dir\\"},
      {"space and backslash at the end", L"\"C:\\my dir\\\\\"", L"C:\\my dir\\"},
      {"backslashes before a quote", L"\\\\\\\"x", L"\\\"x"},
      {"a tab", L"\"a\tb\"", L"a\tb"},
      {"Cyrillic", L"\u0416\u0443\u043a", L"\u0416\u0443\u043a"},
      {"beyond the first plane", L"\xd83c\xdf88", L"\xd83c\xdf88"},
      {"a lone surrogate", L"x\xd83cy", L"x\xd83cy"},
      {"empty at the end", L"\"\"", L""},
  };
  std::wstring commandLine;
  for (const Case& c : cases) commandLine += c.written + L" ";
  Installation installation;
  installation.installSeed("report\n" + endsTheRun(0));

  Launcher launcher = installation.start({.arguments = commandLine});

  EXPECT_EQ(launcher.exitCode(), 0U);
  const Lines arrived = installation.log("seed").all("argument-units");
  ASSERT_EQ(arrived.size(), std::size(cases)) << installation.log("seed").one("command-line");
  for (std::size_t index = 0; index < std::size(cases); ++index) {
    std::string units;
    for (const wchar_t unit : cases[index].meant) {
      char text[8];
      snprintf(text, sizeof text, units.empty() ? "%04x" : " %04x", static_cast<unsigned>(unit));
      units += text;
    }
    EXPECT_EQ(arrived[index], units) << cases[index].why;
  }
}

TEST(arguments, noneArriveWhereNoneWereGiven) {
  Installation installation;
  installation.installSeed("report\n" + endsTheRun(0));

  EXPECT_EQ(installation.start().exitCode(), 0U);

  EXPECT_EQ(installation.log("seed").all("argument-units"), Lines{});
  EXPECT_EQ(installation.log("seed").one("command-line"),
            "\"" + toUtf8(installation.slotDirectory("seed")) + "\\entry-v1.exe\"");
}

std::wstring nameOf(const std::string& entry) {
  const std::wstring wide = toWide(entry);
  return wide.substr(0, wide.find(L'=', 1));
}

bool comesBefore(const std::string& a, const std::string& b) {
  return CompareStringOrdinal(nameOf(a).c_str(), -1, nameOf(b).c_str(), -1, TRUE) == CSTR_LESS_THAN;
}

Lines entriesOf(const std::wstring& block) {
  Lines entries;
  for (const wchar_t* entry = block.c_str(); *entry != L'\0'; entry += wcslen(entry) + 1) {
    entries.push_back(toUtf8(entry));
  }
  return entries;
}

bool isReserved(const std::string& entry) {
  const std::wstring name = nameOf(entry).substr(0, 13);
  return CompareStringOrdinal(name.c_str(), -1, L"QUORVEX_BOOT_", -1, TRUE) == CSTR_EQUAL;
}

// Wine puts these behind the variables that a new process is given, in whatever order it is given them; Windows leaves
// the order alone.
bool isMovedByWine(const std::string& entry) {
  return entry.starts_with("WINE") || entry.starts_with("SystemDrive=") || entry.starts_with("SystemRoot=");
}

TEST(environment, isTheLaunchersOwnWithoutReservedVariablesPlusFourAndSorted) {
  const std::vector<Variable> given = {{L"zz_last", L"1"},
                                       {L"QUORVEX_BOOT_LEASE", L"7"},
                                       {L"Quorvex_Boot_Extra", L"1"},
                                       {L"quorvex_boot_state_root", L"C:\\elsewhere"},
                                       {L"QUORVEX_BOOTLEG", L"kept"},
                                       {L"Mixed Case \u0416", L"caf\u00e9 \xd83c\xdf88 = 1"},
                                       {L"0first", L"0"}};
  Installation installation;
  installation.installSeed("report\n" + endsTheRun(0));

  EXPECT_EQ(installation.start({.variables = given}).exitCode(), 0U);

  Lines seen = installation.log("seed").all("environment");
  std::erase_if(seen, isMovedByWine);
  ASSERT_FALSE(seen.empty());
  const auto sortedUntil = std::is_sorted_until(seen.begin(), seen.end(), comesBefore);
  if (sortedUntil != seen.end()) ADD_FAILURE() << *sortedUntil << "\ncomes after\n" << *std::prev(sortedUntil);

  Lines reserved;
  std::copy_if(seen.begin(), seen.end(), std::back_inserter(reserved), isReserved);
  const RuntimeLog log = installation.log("seed");
  EXPECT_EQ(reserved.size(), 4U) << log.text();
  Lines variables = log.all("variable");
  std::sort(variables.begin(), variables.end());
  EXPECT_EQ(reserved, variables);

  for (const std::string& entry : entriesOf(environmentWith(given))) {
    if (isMovedByWine(entry)) continue;
    const auto times = std::count(seen.begin(), seen.end(), entry);
    EXPECT_EQ(times, isReserved(entry) ? 0 : 1) << entry;
  }
}

TEST(environment, tellsTheRuntimeWhereItRuns) {
  Installation installation;
  installation.installSeed("report\n" + endsTheRun(0));

  EXPECT_EQ(installation.start().exitCode(), 0U);

  const RuntimeLog log = installation.log("seed");
  const Lines variables = log.all("variable");
  ASSERT_EQ(variables.size(), 4U);
  const std::string root = toUtf8(installation.stateRoot());
  EXPECT_EQ(variables[0], "QUORVEX_BOOT_STATE_ROOT=" + root);
  EXPECT_EQ(variables[1], "QUORVEX_BOOT_ATTEMPT_DIR=" + root + "\\attempts\\" + installation.starts().front().nonce);
  EXPECT_EQ(variables[3], "QUORVEX_BOOT_INSTALL_DIR=" + toUtf8(installation.directory()));
}

TEST(environment, namesTheHandleOfTheLaunchLease) {
  Installation installation;
  installation.installSeed("report\n" + endsTheRun(0));

  EXPECT_EQ(installation.start().exitCode(), 0U);

  const RuntimeLog log = installation.log("seed");
  const Lines handles = log.all("handle");
  const auto lease = std::find_if(handles.begin(), handles.end(),
                                  [](const std::string& handle) { return handle.ends_with(" [launch.lock]"); });
  ASSERT_NE(lease, handles.end()) << log.text();
  EXPECT_EQ(log.all("variable")[2], "QUORVEX_BOOT_LEASE=" + lease->substr(0, lease->find(' ')));
}

TEST(currentDirectory, isTheLaunchers) {
  Installation installation;
  installation.installSeed("report\n" + endsTheRun(0));

  EXPECT_EQ(installation.start().exitCode(), 0U);

  EXPECT_EQ(installation.log("seed").one("directory"), toUtf8(installation.scratch()));
}

// The launcher itself inherits two more handles here, which it must not pass on.
TEST(handles, onlyTheLaunchLeaseIsInherited) {
  Installation installation;
  installation.installSeed("report\n" + endsTheRun(0));
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  const Handle event(CreateEventW(&inheritable, TRUE, FALSE, nullptr));
  const Handle file(CreateFileW((installation.scratch() + L"\\extra").c_str(), GENERIC_READ, FILE_SHARE_READ,
                                &inheritable, CREATE_ALWAYS, 0, nullptr));

  EXPECT_EQ(installation.start({.inherited = {event.get(), file.get()}}).exitCode(), 0U);

  Lines inherited;
  for (const std::string& handle : installation.log("seed").all("handle")) {
    // Wine hands the three standard handles to every child in spite of the list of handles; Windows does not.
    const bool standard = handle.find(" inheritable standard ") != std::string::npos;
    if (!standard && handle.find(" inheritable ") != std::string::npos) inherited.push_back(handle);
  }
  ASSERT_EQ(inherited.size(), 1U) << installation.log("seed").text();
  EXPECT_TRUE(inherited.front().ends_with("\\launch.lock [launch.lock]")) << inherited.front();
}

TEST(handles, theLeaseStaysBehindWhenTheRuntimeClearsItsInheritance) {
  Installation installation;
  installation.installSeed("grandchild 600000\nwait 60000 finish\n" + endsTheRun(0));
  Launcher launcher = installation.start();
  ASSERT_TRUE(installation.logsWithin("seed", "grandchild-running"));

  const RuntimeLog log = installation.log("seed");
  installation.writeBeside("seed", L"finish");

  EXPECT_FALSE(log.all("grandchild-handle").empty());
  EXPECT_EQ(log.text().find("[launch.lock]"), std::string::npos) << log.text();
  EXPECT_EQ(launcher.exitCode(), 0U);
}

TEST(job, holdsTheRuntime) {
  Installation installation;
  installation.installSeed("report\n" + endsTheRun(0));

  EXPECT_EQ(installation.start().exitCode(), 0U);

  EXPECT_EQ(installation.log("seed").one("in-job"), "yes");
}

}  // namespace
}  // namespace end_to_end
