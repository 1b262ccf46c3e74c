#include <gtest/gtest.h>

#include <algorithm>

#include "os/child_environment.h"

namespace launcher_stub::os {
namespace {

// The system's order for names of ASCII letters: upper-cased, then by code unit.
bool ordinalIgnoringCase(std::wstring_view a, std::wstring_view b) {
  const auto upper = [](wchar_t c) { return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - 32) : c; };
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                      [&](wchar_t x, wchar_t y) { return upper(x) < upper(y); });
}

std::vector<std::wstring> composed(const std::vector<std::wstring>& inherited,
                                   const std::vector<std::wstring>& added = {}) {
  return splitEnvironmentBlock(composeEnvironmentBlock(inherited, added, ordinalIgnoringCase).c_str());
}

using Entries = std::vector<std::wstring>;

TEST(splitEnvironmentBlock, endsAtTheFirstEmptyEntry) {
  EXPECT_EQ(splitEnvironmentBlock(L"A=1\0=C:=C:\\x\0B=\0\0C=3\0"), (Entries{L"A=1", L"=C:=C:\\x", L"B="}));
  EXPECT_EQ(splitEnvironmentBlock(L"\0A=1\0"), Entries{});
}

TEST(isReservedEntry, comparesThirteenCharactersIgnoringAsciiCase) {
  struct Case {
    const char* why;
    std::wstring entry;
    bool reserved;
  };
  const Case cases[] = {
      {"the launcher's own", L"QUORVEX_BOOT_LEASE=7", true},
      {"mixed case, a name never set", L"Quorvex_Boot_Extra=1", true},
      {"lower case", L"quorvex_boot_x=1", true},
      {"the prefix alone", L"QUORVEX_BOOT_", true},
      {"the prefix as a whole name", L"QUORVEX_BOOT_=1", true},
      {"one character short", L"QUORVEX_BOOT", false},
      {"shorter, with a value", L"QUORVEX_BOO=1", false},
      {"another character in the last place", L"QUORVEX_BOOT=X", false},
      {"a dotted capital I is no I, a long s no S", L"QUORVEX_BOOT\u017F", false},
      {"not at the start", L"MY_QUORVEX_BOOT_X=1", false},
      {"only in the value", L"A=QUORVEX_BOOT_X", false},
      {"empty", L"", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(isReservedEntry(c.entry), c.reserved);
  }
}

TEST(entryName, endsAtTheFirstEqualsSignThatIsNotInTheFirstPlace) {
  struct Case {
    const char* why;
    std::wstring entry, name;
  };
  const Case cases[] = {
      {"plain", L"Path=C:\\x", L"Path"},
      {"an equals sign in the value", L"A=b=c", L"A"},
      {"no value", L"A=", L"A"},
      {"a drive's current directory", L"=C:=C:\\dir", L"=C:"},
      {"no equals sign at all", L"NAME", L"NAME"},
      {"only one, in the first place", L"=NAME", L"=NAME"},
      {"empty", L"", L""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(entryName(c.entry), c.name);
  }
}

TEST(composeEnvironmentBlock, replacesInheritedVariablesOfTheLauncher) {
  const Entries block =
      composed({L"A=1", L"QUORVEX_BOOT_LEASE=7", L"Quorvex_Boot_Extra=1"}, {L"QUORVEX_BOOT_LEASE=420"});

  EXPECT_EQ(block, (Entries{L"A=1", L"QUORVEX_BOOT_LEASE=420"}));
}

TEST(composeEnvironmentBlock, sortsByNameAndNotByValue) {
  EXPECT_EQ(composed({L"b=1", L"AB=2", L"A=z", L"a1=3"}), (Entries{L"A=z", L"a1=3", L"AB=2", L"b=1"}));
}

TEST(composeEnvironmentBlock, keepsTheInheritedOrderOfNamesThatDifferInCaseOnly) {
  EXPECT_EQ(composed({L"X=0", L"Path=first", L"PATH=second"}), (Entries{L"Path=first", L"PATH=second", L"X=0"}));
  EXPECT_EQ(composed({L"X=0", L"PATH=first", L"Path=second"}), (Entries{L"PATH=first", L"Path=second", L"X=0"}));
}

TEST(composeEnvironmentBlock, putsDriveDirectoriesBetweenDigitsAndLetters) {
  EXPECT_EQ(composed({L"_x=1", L"a=1", L"=D:=D:\\", L"=C:=C:\\y", L"9=1"}),
            (Entries{L"9=1", L"=C:=C:\\y", L"=D:=D:\\", L"a=1", L"_x=1"}));
}

TEST(composeEnvironmentBlock, keepsAllEntriesWhicheverComparisonFails) {
  const Entries inherited = {L"F=1", L"E=1", L"D=1", L"C=1", L"B=1", L"A=1", L"G=1", L"a=2"};
  for (int failing = 1; failing < 40; ++failing) {
    SCOPED_TRACE(failing);
    int calls = 0;
    // What the system's comparison says when it fails is the same as "not before".
    const auto order = [&](std::wstring_view a, std::wstring_view b) {
      return ++calls != failing && ordinalIgnoringCase(a, b);
    };

    Entries entries = splitEnvironmentBlock(composeEnvironmentBlock(inherited, {L"H=1"}, order).c_str());

    std::sort(entries.begin(), entries.end());
    EXPECT_EQ(entries, (Entries{L"A=1", L"B=1", L"C=1", L"D=1", L"E=1", L"F=1", L"G=1", L"H=1", L"a=2"}));
  }
}

TEST(composeEnvironmentBlock, endsEachEntryInOneZeroAndTheBlockInOneMore) {
  EXPECT_EQ(composeEnvironmentBlock({L"B=2"}, {L"A=1"}, ordinalIgnoringCase), std::wstring(L"A=1\0B=2\0\0", 9));
  EXPECT_EQ(composeEnvironmentBlock({}, {}, ordinalIgnoringCase), std::wstring(1, L'\0'));
}

}  // namespace
}  // namespace launcher_stub::os
