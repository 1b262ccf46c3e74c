#include "os/environment.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "os/child_environment.h"
#include "tests/os/contract/contract_world.h"

namespace launcher_stub::os {
namespace {

using contract::World;
using Entries = std::vector<std::wstring>;

Entries built(std::uint64_t lease = 0x1A4) {
  return splitEnvironmentBlock(buildChildEnvironment(L"C:\\in stall", L"D:\\\u0416", L"D:\\\u0416\\at", lease).c_str());
}

std::ptrdiff_t countOf(const Entries& entries, const std::wstring& entry) {
  return std::count(entries.begin(), entries.end(), entry);
}

TEST(buildChildEnvironment, addsTheFourVariablesOnce) {
  World world;
  struct Case {
    const char* why;
    std::wstring entry;
  };
  const Case cases[] = {{"a path with a letter beyond ASCII", L"QUORVEX_BOOT_STATE_ROOT=D:\\\u0416"},
                        {"a longer path", L"QUORVEX_BOOT_ATTEMPT_DIR=D:\\\u0416\\at"},
                        {"0x1A4 in decimal", L"QUORVEX_BOOT_LEASE=420"},
                        {"a space, unquoted", L"QUORVEX_BOOT_INSTALL_DIR=C:\\in stall"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(countOf(built(), c.entry), 1);
  }
}

TEST(buildChildEnvironment, writesTheHandleValueWithoutSignAndPadding) {
  World world;
  EXPECT_EQ(countOf(built(4), L"QUORVEX_BOOT_LEASE=4"), 1);
  EXPECT_EQ(countOf(built(0xFFFFFFFFFFFFFFFF), L"QUORVEX_BOOT_LEASE=18446744073709551615"), 1);
}

TEST(buildChildEnvironment, dropsInheritedVariablesOfThePrefixInWhateverCase) {
  struct Case {
    const char* why;
    const wchar_t* name;
    bool kept;
  };
  const Case cases[] = {{"one of the four", L"QUORVEX_BOOT_LEASE", false},
                        {"one of the four in lower case", L"quorvex_boot_state_root", false},
                        {"mixed case, of no meaning here", L"Quorvex_Boot_Extra", false},
                        {"the prefix and nothing more", L"QUORVEX_BOOT_", false},
                        {"one character short of the prefix", L"QUORVEX_BOOT", true},
                        {"the prefix not in front", L"X_QUORVEX_BOOT_LEASE", true},
                        {"another name", L"CONTRACT_KEPT", true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    World world;
    world.setVariable(c.name, L"inherited");
    const Entries entries = built();
    EXPECT_EQ(countOf(entries, std::wstring(c.name) + L"=inherited"), c.kept ? 1 : 0);
    EXPECT_EQ(std::count_if(entries.begin(), entries.end(), [](const auto& entry) { return isReservedEntry(entry); }),
              4);
  }
}

// Upper-case letters are compared: "=" lies between the digits and them, and "_" behind them.
TEST(buildChildEnvironment, sortsByNameAsTheSystemDoes) {
  World world;
  const Entries expected = {L"9CONTRACT=1",  L"=Q:=Q:\\dir",         L"contract_a=5",
                            L"CONTRACT_B=4", L"contract_b_longer=3", L"_CONTRACT=2"};
  for (auto entry = expected.rbegin(); entry != expected.rend(); ++entry) {
    const std::size_t end = entry->find(L'=', 1);
    world.setVariable(entry->substr(0, end), entry->substr(end + 1));
  }

  Entries found = built();

  std::erase_if(found, [&](const std::wstring& entry) { return countOf(expected, entry) == 0; });
  EXPECT_EQ(found, expected);
}

// Two names that differ only in case can be inherited from a parent that wrote its block by hand.
TEST(buildChildEnvironment, leavesEqualNamesInTheirOrder) {
  struct Case {
    const char* why;
    Entries inherited;
  };
  const Case cases[] = {{"one way", {L"Contract_Twice=b", L"CONTRACT_TWICE=a"}},
                        {"the other way", {L"CONTRACT_TWICE=b", L"Contract_Twice=a"}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    World world;
    Entries found = world.builtInAProcessWith(c.inherited);
    std::erase_if(found, [&](const std::wstring& entry) { return countOf(c.inherited, entry) == 0; });
    EXPECT_EQ(found, c.inherited);
  }
}

TEST(buildChildEnvironment, endsInTwoZerosAndNotSooner) {
  World world;
  const std::wstring block = buildChildEnvironment(L"i", L"s", L"a", 4);

  ASSERT_GE(block.size(), 3u);
  EXPECT_EQ(block.find(std::wstring(2, L'\0')), block.size() - 2);
}

TEST(readEnvironmentVariable, givesAnOwnCopyOfTheValue) {
  World world;
  const std::wstring longValue(5'000, L'v');
  struct Case {
    const char* why;
    const wchar_t* name;
    std::wstring expected;
  };
  world.setVariable(L"CONTRACT_SET", L"some value = \u0416\U0001F680");
  world.setVariable(L"CONTRACT_LONG", longValue);
  world.setVariable(L"CONTRACT_EMPTY", L"");
  world.removeVariable(L"CONTRACT_UNSET");
  const Case cases[] = {{"set", L"CONTRACT_SET", L"some value = \u0416\U0001F680"},
                        {"set, asked for in another case", L"contract_Set", L"some value = \u0416\U0001F680"},
                        {"long", L"CONTRACT_LONG", longValue},
                        {"set to nothing", L"CONTRACT_EMPTY", L""},
                        {"not set", L"CONTRACT_UNSET", L""},
                        {"the beginning of a name that is set", L"CONTRACT_SE", L""}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(readEnvironmentVariable(c.name), c.expected);
  }
  const std::wstring copy = readEnvironmentVariable(L"CONTRACT_SET");
  world.setVariable(L"CONTRACT_SET", L"another");
  EXPECT_EQ(copy, L"some value = \u0416\U0001F680");
  EXPECT_EQ(readEnvironmentVariable(L"CONTRACT_SET"), L"another");
}

}  // namespace
}  // namespace launcher_stub::os
