// The system judges: whatever the arguments are, its splitter gives them back.
#include <gtest/gtest.h>
#include <windows.h>

#include <shellapi.h>

#include <random>

#include "os/command_line.h"
#include "tests/fuzz/command_line_input.h"
#include "tests/fuzz/command_line_splitter.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::os {
namespace {

using Arguments = std::vector<std::wstring>;

Arguments splitBySystem(const std::wstring& line) {
  int count = 0;
  wchar_t** elements = CommandLineToArgvW(line.c_str(), &count);
  Arguments arguments(elements + 1, elements + count);
  LocalFree(elements);
  return arguments;
}

void checkRoundTrip(const Arguments& arguments) {
  const std::wstring line = buildCommandLine(L"C:\\a b\\entry-v1.exe", arguments);
  ASSERT_EQ(splitBySystem(line), arguments);
  ASSERT_EQ(splitCommandLine(line), arguments);
}

// Read by Win32 calls: the folder of the program may have any name.
std::string contentsOf(const std::wstring& path) {
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return {};
  std::string contents(GetFileSize(file, nullptr), '\0');
  DWORD read = 0;
  if (ReadFile(file, contents.data(), static_cast<DWORD>(contents.size()), &read, nullptr) == 0) read = 0;
  CloseHandle(file);
  contents.resize(read);
  return contents;
}

std::vector<std::string> corpus() {
  const std::wstring directory = tests::besideThisProgram(L"command_line_corpus");
  std::vector<std::string> inputs;
  WIN32_FIND_DATAW entry;
  const HANDLE search = FindFirstFileW((directory + L"/*").c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return inputs;
  do {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      inputs.push_back(contentsOf(directory + L"/" + static_cast<const wchar_t*>(entry.cFileName)));
    }
  } while (FindNextFileW(search, &entry) != 0);
  FindClose(search);
  return inputs;
}

TEST(buildCommandLine, isSplitBackBySystemForEveryInputThatAFuzzerFound) {
  const std::vector<std::string> inputs = corpus();
  ASSERT_FALSE(inputs.empty());
  for (const std::string& input : inputs) ASSERT_NO_FATAL_FAILURE(checkRoundTrip(fuzz::argumentsOf(input)));
}

TEST(buildCommandLine, isSplitBackBySystemForAHundredThousandLists) {
  constexpr unsigned seed = 20250312;
  std::mt19937 random(seed);
  constexpr std::string_view alphabet("\\\\\\\\\"\"\" \t\0\0ab\xC3\xFF'^%", 18);
  for (int round = 0; round < 100'000; ++round) {
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", list " << round);
    std::string bytes;
    for (auto length = random() % 24; length > 0; --length) bytes += alphabet[random() % alphabet.size()];
    ASSERT_NO_FATAL_FAILURE(checkRoundTrip(fuzz::argumentsOf(bytes)));
  }
}

// Not only lines of our own making: the splitter that the fuzz target relies on knows the system's rules.
TEST(splitCommandLine, splitsAnyLineAsTheSystemDoes) {
  constexpr unsigned seed = 20250313;
  std::mt19937 random(seed);
  constexpr std::wstring_view alphabet = L"\\\\\"\" \tab";
  for (int round = 0; round < 20'000; ++round) {
    std::wstring line = L"e";
    for (auto length = random() % 16; length > 0; --length) line += alphabet[random() % alphabet.size()];
    ASSERT_EQ(splitCommandLine(line), splitBySystem(line)) << "seed " << seed << ", line " << round;
  }
}

}  // namespace
}  // namespace launcher_stub::os
