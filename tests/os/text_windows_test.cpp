#include "os/text.h"

#include <gtest/gtest.h>
#include <windows.h>

namespace launcher_stub::os {
namespace {

TEST(toWide, convertsStrictly) {
  struct Case {
    const char* why;
    std::string utf8;
    std::wstring wide;
  };
  const Case cases[] = {
      {"empty", "", L""},
      {"ASCII", "abc", L"abc"},
      {"two bytes", "\xD0\x96", L"\u0416"},
      {"three bytes", "\xE2\x82\xAC", L"\u20AC"},
      {"four bytes become a surrogate pair", "\xF0\x9F\x9A\x80", L"\U0001F680"},
      {"a zero byte is a character", std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
      {"cut sequence", "ok\xD0", L""},
      {"lone continuation byte", "\x80", L""},
      {"overlong form", "\xC0\xAF", L""},
      {"a surrogate in UTF-8", "\xED\xA0\x80", L""},
      {"beyond the last code point", "\xF4\x90\x80\x80", L""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(toWide(c.utf8), c.wide);
  }
}

TEST(toUtf8, convertsStrictly) {
  struct Case {
    const char* why;
    std::wstring wide;
    std::string utf8;
  };
  const Case cases[] = {
      {"empty", L"", ""},
      {"all lengths", L"a\u0416\u20AC\U0001F680", "a\xD0\x96\xE2\x82\xAC\xF0\x9F\x9A\x80"},
      {"lone high surrogate", std::wstring{L'a', wchar_t{0xD83D}}, ""},
      {"lone low surrogate", std::wstring{wchar_t{0xDE80}, L'a'}, ""},
      {"pair in the wrong order", std::wstring{wchar_t{0xDE80}, wchar_t{0xD83D}}, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(toUtf8(c.wide), c.utf8);
  }
}

TEST(text, survivesThereAndBackAtAnyLength) {
  std::string text;
  for (int length = 0; length < 3000; length += 7) {
    EXPECT_EQ(toUtf8(toWide(text)), text);
    text += "abc\xD0\x96";
  }
}

TEST(toSystemCodePage, replacesWhatTheCodePageLacksByAQuestionMark) {
  EXPECT_EQ(toSystemCodePage(L"C:\\plain.exe"), "C:\\plain.exe");
  EXPECT_EQ(toSystemCodePage(L""), "");
  if (GetACP() == CP_UTF8) {
    EXPECT_EQ(toSystemCodePage(L"\u4E2D"), "\xE4\xB8\xAD");
    return;
  }
  ASSERT_EQ(GetACP(), 1252u) << "what this test expects of other code pages is not known";
  EXPECT_EQ(toSystemCodePage(L"caf\u00E9 \u4E2D \u0416"), "caf\xE9 ? ?");
  EXPECT_EQ(toSystemCodePage(L"\u0100"), "?") << "no letter that merely looks alike";
}

}  // namespace
}  // namespace launcher_stub::os
