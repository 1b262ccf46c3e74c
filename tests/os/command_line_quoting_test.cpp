#include <gtest/gtest.h>

#include "os/command_line.h"

namespace launcher_stub::os {
namespace {

TEST(quoteArgument, doublesBackslashesOnlyInFrontOfAQuote) {
  struct Case {
    const char* why;
    std::wstring argument, quoted;
  };
  const Case cases[] = {
      {"empty", L"", L"\"\""},
      {"plain text is quoted too", L"a", L"\"a\""},
      {"spaces need nothing more", L"a b", L"\"a b\""},
      {"backslashes inside stay single", L"a\\\\b", L"\"a\\\\b\""},
      {"one backslash at the end", L"C:\\", L"\"C:\\\\\""},
      {"two backslashes at the end", L"a\\\\", L"\"a\\\\\\\\\""},
      {"a quote", L"\"", L"\"\\\"\""},
      {"one backslash and a quote", L"\\\"", L"\"\\\\\\\"\""},
      {"two backslashes and a quote", L"\\\\\"", L"\"\\\\\\\\\\\"\""},
      {"the count starts anew behind another character", L"\\a\"", L"\"\\a\\\"\""},
      {"the count starts anew behind a quote", L"\\\"\"", L"\"\\\\\\\"\\\"\""},
      {"characters beyond ASCII", L"\u0416 \U0001F680", L"\"\u0416 \U0001F680\""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(quoteArgument(c.argument), c.quoted);
  }
}

TEST(buildCommandLine, isTheQuotedPathAndEachArgumentAfterOneSpace) {
  EXPECT_EQ(buildCommandLine(L"C:\\a b\\entry-v1.exe", {}), L"\"C:\\a b\\entry-v1.exe\"");
  EXPECT_EQ(buildCommandLine(L"e.exe", {L"--open", L"", L"x y"}), L"\"e.exe\" \"--open\" \"\" \"x y\"");
}

}  // namespace
}  // namespace launcher_stub::os
