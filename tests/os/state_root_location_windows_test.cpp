#include <gtest/gtest.h>
#include <windows.h>

#include "os/environment.h"
#include "os/state_root.h"

namespace launcher_stub::os {
namespace {

// Sets or, with null, removes a variable of this process for as long as it lives.
class VariableSet {
 public:
  VariableSet(const wchar_t* name, const wchar_t* value) : name_(name), previous_(readEnvironmentVariable(name)) {
    SetEnvironmentVariableW(name, value);
  }
  VariableSet(const VariableSet&) = delete;
  VariableSet& operator=(const VariableSet&) = delete;
  ~VariableSet() { SetEnvironmentVariableW(name_, previous_.empty() ? nullptr : previous_.c_str()); }

 private:
  const wchar_t* name_;
  std::wstring previous_;
};

TEST(resolveStateRoot, usesTheSettingRelativeToTheInstallDirectory) {
  struct Case {
    const char* why;
    std::string setting;
    std::wstring root;
  };
  const Case cases[] = {
      {"relative", "state", L"C:\\install\\state"},
      {"absolute", "D:\\x", L"D:\\x"},
      {"absolute with a slash", "D:/x", L"D:/x"},
      {"share", "\\\\server\\share\\x", L"\\\\server\\share\\x"},
      {"relative to a drive's directory", "D:x", L"C:\\install\\D:x"},
      {"UTF-8 becomes UTF-16", "\xD0\x96\xF0\x9F\x9A\x80", L"C:\\install\\\u0416\U0001F680"},
      {"broken UTF-8 counts as an empty relative path", "\xC3", L"C:\\install\\"},
  };
  const VariableSet localData(L"LOCALAPPDATA", L"C:\\unused");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(resolveStateRoot(L"C:\\install", c.setting), c.root);
  }
}

TEST(resolveStateRoot, liesUnderTheLocalApplicationDataWithoutASetting) {
  const VariableSet localData(L"LOCALAPPDATA", L"C:\\Users\\\u0416\\Local");
  EXPECT_EQ(resolveStateRoot(L"C:\\install", ""), L"C:\\Users\\\u0416\\Local\\Quorvex/tessellary/native");
}

TEST(resolveStateRoot, isEmptyWhereTheVariableIsUnsetOrEmpty) {
  {
    const VariableSet localData(L"LOCALAPPDATA", nullptr);
    EXPECT_EQ(resolveStateRoot(L"C:\\install", ""), L"");
  }
  const VariableSet localData(L"LOCALAPPDATA", L"");
  EXPECT_EQ(resolveStateRoot(L"C:\\install", ""), L"");
}

TEST(readEnvironmentVariable, returnsLongValuesWholeAndNothingForUnsetOnes) {
  const std::wstring value(5000, L'x');
  const VariableSet variable(L"LAUNCHER_TEST_VARIABLE", value.c_str());
  EXPECT_EQ(readEnvironmentVariable(L"LAUNCHER_TEST_VARIABLE"), value);
  EXPECT_EQ(readEnvironmentVariable(L"LAUNCHER_TEST_NO_SUCH_VARIABLE"), L"");
}

}  // namespace
}  // namespace launcher_stub::os
