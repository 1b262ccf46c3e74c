#include "os/text.h"

#include <gtest/gtest.h>

#include "tests/os/contract/contract_world.h"

namespace launcher_stub::os {
namespace {

TEST(text, convertsBothWays) {
  struct Case {
    const char* why;
    std::string utf8;
    std::wstring wide;
  };
  const Case cases[] = {{"nothing", "", L""},
                        {"ASCII", "abc \\ \" ~", L"abc \\ \" ~"},
                        {"a zero is a character", std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
                        {"the last of one byte", "\x7F", L"\x7F"},
                        {"the first of two bytes", "\xC2\x80", L"\u0080"},
                        {"the last of two bytes", "\xDF\xBF", L"\u07FF"},
                        {"the first of three bytes", "\xE0\xA0\x80", L"\u0800"},
                        {"the last before the surrogates", "\xED\x9F\xBF", L"\uD7FF"},
                        {"the first after the surrogates", "\xEE\x80\x80", L"\uE000"},
                        {"a byte-order mark stays", "\xEF\xBB\xBFx", L"\uFEFFx"},
                        {"the last of three bytes", "\xEF\xBF\xBF", L"\uFFFF"},
                        {"the first of four bytes", "\xF0\x90\x80\x80", L"\U00010000"},
                        {"the last of all", "\xF4\x8F\xBF\xBF", L"\U0010FFFF"},
                        {"all lengths", "a\xD0\x96\xE2\x82\xAC\xF0\x9F\x9A\x80", L"a\u0416\u20AC\U0001F680"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(toWide(c.utf8), c.wide);
    EXPECT_EQ(toUtf8(c.wide), c.utf8);
  }
}

TEST(toWide, isEmptyForInvalidUtf8) {
  struct Case {
    const char* why;
    std::string utf8;
  };
  const Case cases[] = {{"cut after one byte of two", "ok\xD0"},
                        {"cut after two bytes of three", "ok\xE2\x82"},
                        {"cut after three bytes of four", "ok\xF0\x9F\x9A"},
                        {"cut in the middle", "\xE2\x82ok"},
                        {"a continuation byte alone", "\x80"},
                        {"overlong in two bytes", "\xC0\xAF"},
                        {"overlong in two bytes, second kind", "\xC1\xBF"},
                        {"overlong in three bytes", "\xE0\x9F\xBF"},
                        {"overlong in four bytes", "\xF0\x8F\xBF\xBF"},
                        {"a high surrogate", "\xED\xA0\x80"},
                        {"a low surrogate", "\xED\xBF\xBF"},
                        {"a surrogate pair", "\xED\xA0\xBD\xED\xBA\x80"},
                        {"beyond the last of all", "\xF4\x90\x80\x80"},
                        {"a lead byte that there is not", "\xF5\x80\x80\x80"},
                        {"the byte FF", "ok\xFF"},
                        {"one bad byte behind much that is good", std::string(1'000, 'a') + "\x80"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(toWide(c.utf8), L"");
  }
}

TEST(toUtf8, isEmptyForLoneSurrogates) {
  struct Case {
    const char* why;
    std::wstring wide;
  };
  const Case cases[] = {{"a high one at the end", {L'a', wchar_t{0xD83D}}},
                        {"a high one before a letter", {wchar_t{0xD83D}, L'a'}},
                        {"a low one", {L'a', wchar_t{0xDE80}, L'b'}},
                        {"a pair in the wrong order", {wchar_t{0xDE80}, wchar_t{0xD83D}}},
                        {"two high ones", {wchar_t{0xD83D}, wchar_t{0xD83D}}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(toUtf8(c.wide), "");
  }
}

TEST(text, survivesThereAndBackAtAnyLength) {
  std::string text;
  for (int length = 0; length < 3'000; length += 7) {
    EXPECT_EQ(toUtf8(toWide(text)), text);
    text += "abc\xD0\x96";
  }
}

// Which code page that is differs. U+0D85 is in none of those that a system can be set to, but UTF-8.
TEST(toSystemCodePage, keepsAsciiAndReplacesWhatTheCodePageLacks) {
  EXPECT_EQ(toSystemCodePage(L""), "");
  EXPECT_EQ(toSystemCodePage(L"C:\\plain dir\\entry-v1.exe"), "C:\\plain dir\\entry-v1.exe");
  const std::string replaced = toSystemCodePage(L"a\u0D85b");
  EXPECT_TRUE(replaced == "a?b" || replaced ==
                                       "a\xE0\xB6\x85"
                                       "b")
      << replaced;
}

}  // namespace
}  // namespace launcher_stub::os
