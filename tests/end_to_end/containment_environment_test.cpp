// The environment block that the runtime is given: its order, and the four variables in it.

#include <windows.h>

#include <algorithm>

#include "tests/end_to_end/containment.h"

namespace end_to_end {
namespace {

using Lines = std::vector<std::string>;

// Under Wine a few variables stand behind those that a process was given, in whatever order it was given them.
bool isMovedByWine(const std::string& entry) {
  return entry.starts_with("WINE") || entry.starts_with("SystemDrive=") || entry.starts_with("SystemRoot=");
}

// The name's code units as the system compares them: each in upper case by its own table.
std::wstring sortKey(const std::string& entry) {
  using Upcase = WCHAR NTAPI(WCHAR);
  static auto* const upcase = reinterpret_cast<Upcase*>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlUpcaseUnicodeChar")));
  const std::wstring wide = toWide(entry);
  std::wstring key = wide.substr(0, wide.find(L'=', 1));
  for (wchar_t& unit : key) unit = upcase(unit);
  return key;
}

bool comesBefore(const std::string& a, const std::string& b) { return sortKey(a) < sortKey(b); }

Lines startingWith(const std::wstring& keyStart, const Lines& entries) {
  Lines found;
  std::copy_if(entries.begin(), entries.end(), std::back_inserter(found),
               [&](const std::string& entry) { return sortKey(entry).starts_with(keyStart); });
  return found;
}

TEST_F(ContainmentTest, theEnvironmentIsSortedByNamesInUpperCase) {
  // In lower case "_" and "[" would come before all letters; by whole entries "!" and "1" would come before "=";
  // without folding "zz" would come behind "ZZ".
  const Lines expected = {"ZZ=end", "zz!=1", "ZZA=x",      "zzA1=1",     "ZZB=a",       "ZZ[=2",       "zz_=1",
                          "ZZ`=3",  "ZZ{=4", "zz\u00e9=5", "ZZ\u00ea=6", "ZZ\u0416a=7", "zz\u0436b=8", "ZZ\u0416C=9"};
  std::vector<Variable> given;
  for (const std::string& entry : expected) {
    const std::wstring wide = toWide(entry);
    given.insert(given.begin(), {wide.substr(0, wide.find(L'=')), wide.substr(wide.find(L'=') + 1)});
  }
  given.push_back({L"=C:", L"C:\\windows"});
  given.push_back({L"9zz", L"1"});

  EXPECT_EQ(launch(L"end", {.variables = given}).exitCode(), 0U);

  Lines entries = report().all("environment");
  std::erase_if(entries, isMovedByWine);
  EXPECT_EQ(startingWith(L"ZZ", entries), expected);
  EXPECT_EQ(startingWith(L"9ZZ", entries), Lines{"9zz=1"});
  const auto sortedUntil = std::is_sorted_until(entries.begin(), entries.end(), comesBefore);
  if (sortedUntil != entries.end()) ADD_FAILURE() << *sortedUntil << "\ncomes after\n" << *std::prev(sortedUntil);
}

TEST_F(ContainmentTest, theFourVariablesStandThereOnceWhateverTheLauncherWasGiven) {
  struct Case {
    const char* why;
    std::vector<Variable> given;
  };
  const Case cases[] = {
      {"none of them", {}},
      {"all of them, as another launcher would have set them",
       {{L"QUORVEX_BOOT_STATE_ROOT", L"C:\\other"},
        {L"QUORVEX_BOOT_ATTEMPT_DIR", L"C:\\other\\attempts\\1"},
        {L"QUORVEX_BOOT_LEASE", L"4"},
        {L"QUORVEX_BOOT_INSTALL_DIR", L"C:\\elsewhere"}}},
      {"in lower case",
       {{L"quorvex_boot_state_root", L"x"},
        {L"quorvex_boot_attempt_dir", L"x"},
        {L"quorvex_boot_lease", L"x"},
        {L"quorvex_boot_install_dir", L"x"}}},
      {"one name in several spellings",
       {{L"Quorvex_Boot_Lease", L"1"}, {L"QUORVEX_BOOT_LEASE", L"2"}, {L"qUORVEX_bOOT_lEASE", L"3"}}},
      {"one name twice", {{L"QUORVEX_BOOT_LEASE", L"1"}, {L"QUORVEX_BOOT_LEASE", L"2"}}},
      {"an empty value, and the prefix alone", {{L"QUORVEX_BOOT_STATE_ROOT", L""}, {L"QUORVEX_BOOT_", L"x"}}},
      {"others of the prefix", {{L"QUORVEX_BOOT_LEASE2", L"1"}, {L"Quorvex_Boot_Extra", L"1"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const Lines given = startingWith(L"QUORVEX_BOOT_", reportOfProbeAlone({.variables = c.given}).all("environment"));
    EXPECT_EQ(given.size(), c.given.size()) << "they arrive where nobody takes them out";

    EXPECT_EQ(launch(L"end", {.variables = c.given}).exitCode(), 0U);

    const RuntimeLog report = this->report();
    const std::string root = toUtf8(installation_.stateRoot());
    const Lines four = startingWith(L"QUORVEX_BOOT_", report.all("environment"));
    ASSERT_EQ(four.size(), 4U) << report.text();
    const std::string attempt = "QUORVEX_BOOT_ATTEMPT_DIR=" + root + "\\attempts\\";
    EXPECT_TRUE(four[0].starts_with(attempt) && four[0].size() == attempt.size() + 32) << four[0];
    EXPECT_EQ(four[1], "QUORVEX_BOOT_INSTALL_DIR=" + toUtf8(installation_.directory()));
    EXPECT_EQ(four[2], "QUORVEX_BOOT_LEASE=" + inheritedIn(report).at(0).value);
    EXPECT_EQ(four[3], "QUORVEX_BOOT_STATE_ROOT=" + root);
  }
}

}  // namespace
}  // namespace end_to_end
