#include "os/child_environment.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>

namespace launcher_stub::os {
namespace {

using Entries = std::vector<std::wstring>;

// Variables of this process for as long as it lives.
class Variables {
 public:
  explicit Variables(std::vector<const wchar_t*> names) : names_(std::move(names)) {
    for (const wchar_t* name : names_) SetEnvironmentVariableW(name, L"inherited");
  }
  Variables(const Variables&) = delete;
  Variables& operator=(const Variables&) = delete;
  ~Variables() {
    for (const wchar_t* name : names_) SetEnvironmentVariableW(name, nullptr);
  }

 private:
  std::vector<const wchar_t*> names_;
};

Entries built(std::uint64_t lease = 0x1A4) {
  return splitEnvironmentBlock(buildChildEnvironment(L"C:\\in stall", L"D:\\\u0416", L"D:\\\u0416\\at", lease).c_str());
}

bool contains(const Entries& entries, const std::wstring& entry) {
  return std::find(entries.begin(), entries.end(), entry) != entries.end();
}

TEST(buildChildEnvironment, addsTheFourVariables) {
  const Entries entries = built();

  EXPECT_TRUE(contains(entries, L"QUORVEX_BOOT_STATE_ROOT=D:\\\u0416"));
  EXPECT_TRUE(contains(entries, L"QUORVEX_BOOT_ATTEMPT_DIR=D:\\\u0416\\at"));
  EXPECT_TRUE(contains(entries, L"QUORVEX_BOOT_LEASE=420"));
  EXPECT_TRUE(contains(entries, L"QUORVEX_BOOT_INSTALL_DIR=C:\\in stall"));
}

TEST(buildChildEnvironment, writesTheLargestHandleValueWithoutASign) {
  EXPECT_TRUE(contains(built(0xFFFFFFFFFFFFFFFF), L"QUORVEX_BOOT_LEASE=18446744073709551615"));
}

TEST(buildChildEnvironment, passesOnTheRestAndDropsTheLaunchersPrefix) {
  const Variables variables({L"LAUNCHER_TEST_KEPT", L"QUORVEX_BOOT_LEASE", L"Quorvex_Boot_Extra"});

  const Entries entries = built();

  EXPECT_TRUE(contains(entries, L"LAUNCHER_TEST_KEPT=inherited"));
  const auto reserved = std::count_if(entries.begin(), entries.end(), [](const auto& e) { return isReservedEntry(e); });
  EXPECT_EQ(reserved, 4);
  EXPECT_FALSE(contains(entries, L"QUORVEX_BOOT_LEASE=inherited"));
}

TEST(buildChildEnvironment, isSortedAsTheSystemComparesNames) {
  const Variables variables(
      {L"launcher_test_b", L"LAUNCHER_TEST_A", L"9launcher", L"_launcher", L"=C:", L"\u0436\u0443"});

  const Entries entries = built();

  ASSERT_GT(entries.size(), 9u);
  for (std::size_t index = 1; index < entries.size(); ++index) {
    const std::wstring_view before = entryName(entries[index - 1]);
    const std::wstring_view after = entryName(entries[index]);
    EXPECT_NE(CompareStringOrdinal(before.data(), static_cast<int>(before.size()), after.data(),
                                   static_cast<int>(after.size()), TRUE),
              CSTR_GREATER_THAN)
        << "entry " << index;
  }
}

TEST(buildChildEnvironment, endsInTwoZeros) {
  const std::wstring block = buildChildEnvironment(L"i", L"s", L"a", 4);
  ASSERT_GE(block.size(), 2u);
  EXPECT_EQ(block[block.size() - 1], L'\0');
  EXPECT_EQ(block[block.size() - 2], L'\0');
  EXPECT_NE(block[block.size() - 3], L'\0');
}

}  // namespace
}  // namespace launcher_stub::os
