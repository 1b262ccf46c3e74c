#include "os/command_line.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <shellapi.h>

#include <random>

#include "os/text.h"
#include "tests/os/test_child.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::os {
namespace {

using Arguments = std::vector<std::wstring>;

// What the system makes of a command line, without its first element.
Arguments splitBySystem(const std::wstring& line) {
  int count = 0;
  wchar_t** elements = CommandLineToArgvW(line.c_str(), &count);
  Arguments arguments(elements + 1, elements + count);
  LocalFree(elements);
  return arguments;
}

TEST(buildCommandLine, isSplitBackByTheSystem) {
  const Arguments cases[] = {
      {},
      {L""},
      {L"", L"", L"a"},
      {L"plain", L"two words", L"\ttab\n"},
      {L"\"", L"\"\"", L"a\"b", L"\\\"", L"\\\\\"", L"\\\\\\\"x"},
      {L"C:\\dir\\", L"C:\\dir with space\\\\", L"\\\\server\\share"},
      {L"\u0416\u0443\u043A", L"\U0001F680", L"it's", L"%PATH%", L"^&|<>"},
  };
  for (const Arguments& arguments : cases) {
    EXPECT_EQ(splitBySystem(buildCommandLine(L"C:\\a b\\entry-v1.exe", arguments)), arguments);
  }
}

TEST(buildCommandLine, isSplitBackByTheSystemWhateverTheArguments) {
  constexpr unsigned seed = 20240607;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const std::wstring alphabet = L"\\\\\\\"\"\" \ta\u0416";
  for (int round = 0; round < 3000; ++round) {
    Arguments arguments(random() % 5);
    for (std::wstring& argument : arguments) {
      for (auto length = random() % 9; length > 0; --length) argument += alphabet[random() % alphabet.size()];
    }
    ASSERT_EQ(splitBySystem(buildCommandLine(L"e.exe", arguments)), arguments) << round;
  }
}

std::vector<std::string> argumentsSeenByChild(const Arguments& arguments) {
  const tests::TempDirectory directory;
  Arguments more = {directory / L"report"};
  more.insert(more.end(), arguments.begin(), arguments.end());
  const tests::TestChild child(tests::action::dumpArguments, more);
  std::vector<std::string> lines = tests::waitForReport(directory / L"report");
  if (lines.size() < 3) return {"(no report)"};
  return {lines.begin() + 3, lines.end()};  // behind "--child", the action and the report's path
}

TEST(readCommandLineArguments, returnsWhatTheProcessWasStartedWith) {
  EXPECT_EQ(argumentsSeenByChild({}), std::vector<std::string>{});
  EXPECT_EQ(argumentsSeenByChild({L"a b", L"", L"\\\"", L"\u0416"}),
            (std::vector<std::string>{"a b", "", "\\\"", "\xD0\x96"}));
}

// Not with an empty line: the system's splitter then gives back the program's own path, as one element.
TEST(readCommandLineArguments, isEmptyForTheProgramsPathAlone) {
  EXPECT_EQ(splitBySystem(L"\"C:\\Program Files\\launcher.exe\""), Arguments{});
  EXPECT_EQ(splitBySystem(L"launcher.exe"), Arguments{});
}

}  // namespace
}  // namespace launcher_stub::os
