#include "os/console.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "tests/support/standard_error_capture.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::os {
namespace {

using tests::StandardErrorCapture;

constexpr char beetle[] = "\xD0\x96\xD1\x83\xD0\xBA";  // three Cyrillic letters

// A standard stream of this process leads elsewhere while it lives.
class Redirected {
 public:
  Redirected(DWORD stream, HANDLE target) : stream_(stream), previous_(GetStdHandle(stream)) {
    SetStdHandle(stream_, target);
  }
  Redirected(const Redirected&) = delete;
  Redirected& operator=(const Redirected&) = delete;
  ~Redirected() { SetStdHandle(stream_, previous_); }

 private:
  DWORD stream_;
  HANDLE previous_;
};

TEST(writeText, givesAFileItsBytes) {
  const StandardErrorCapture errors;

  EXPECT_TRUE(writeText(Stream::errors, std::string(beetle) + "\ntwo"));
  EXPECT_TRUE(writeText(Stream::errors, ""));

  EXPECT_EQ(errors.text(), std::string(beetle) + "\ntwo");
}

TEST(writeText, keepsTheTwoStreamsApart) {
  const StandardErrorCapture errors;
  const tests::TempDirectory directory;
  const HANDLE file = CreateFileW((directory / L"output").c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                  CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  {
    const Redirected output(STD_OUTPUT_HANDLE, file);
    EXPECT_TRUE(writeText(Stream::output, "result"));
  }
  CloseHandle(file);

  EXPECT_EQ(tests::readFile(directory / L"output"), "result");
  EXPECT_EQ(errors.text(), "");
}

TEST(writeText, failsWhereThereIsNoStream) {
  const Redirected nowhere(STD_ERROR_HANDLE, nullptr);

  EXPECT_FALSE(writeText(Stream::errors, "lost"));
}

// What a row of the console shows from its first column on.
std::wstring shownIn(HANDLE console, SHORT row, DWORD length) {
  std::wstring text(length, L'\0');
  DWORD read = 0;
  ReadConsoleOutputCharacterW(console, text.data(), length, COORD{0, row}, &read);
  text.resize(read);
  return text;
}

TEST(writeText, givesAConsoleItsCharactersWhateverTheCodePage) {
  FreeConsole();  // of a run by hand; this program's own streams need none
  ASSERT_TRUE(AllocConsole());
  const HANDLE console = CreateConsoleScreenBuffer(GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                                   nullptr, CONSOLE_TEXTMODE_BUFFER, nullptr);
  ASSERT_NE(console, INVALID_HANDLE_VALUE);
  SetConsoleOutputCP(437);  // has no Cyrillic
  {
    const Redirected output(STD_OUTPUT_HANDLE, console);
    EXPECT_TRUE(writeText(Stream::output, std::string(beetle) + "\ntwo"));
  }

  EXPECT_EQ(shownIn(console, 0, 3), L"\u0416\u0443\u043a");
  EXPECT_EQ(shownIn(console, 1, 3), L"two");
  CloseHandle(console);
  FreeConsole();
}

}  // namespace
}  // namespace launcher_stub::os
