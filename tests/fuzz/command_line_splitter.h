// The rules by which the system splits a command line, written down a second time for tests.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace launcher_stub {

// The arguments behind the program's name. The name ends at its closing quote, or without one at white space; in it a
// backslash means nothing. In an argument, backslashes count only in front of a quote: 2n of them and a quote are n
// backslashes and the quote's own meaning, 2n + 1 are n backslashes and a quote as text. A second quote right behind
// one that closes is a quote as text.
inline std::vector<std::wstring> splitCommandLine(std::wstring_view line) {
  const auto isBlank = [](wchar_t character) { return character == L' ' || character == L'\t'; };
  std::size_t at = 0;
  if (!line.empty() && line[0] == L'"') {
    at = std::min(line.find(L'"', 1), line.size() - 1) + 1;
  } else {
    while (at < line.size() && !isBlank(line[at])) ++at;
  }

  std::vector<std::wstring> arguments;
  while (true) {
    while (at < line.size() && isBlank(line[at])) ++at;
    if (at == line.size()) return arguments;
    std::wstring& argument = arguments.emplace_back();
    bool isQuoted = false;
    for (; at < line.size() && (isQuoted || !isBlank(line[at])); ++at) {
      std::size_t backslashes = 0;
      for (; at < line.size() && line[at] == L'\\'; ++at) ++backslashes;
      const bool isQuote = at < line.size() && line[at] == L'"';
      argument.append(isQuote ? backslashes / 2 : backslashes, L'\\');
      if (!isQuote) {
        if (at == line.size() || (!isQuoted && isBlank(line[at]))) break;
        argument += line[at];
      } else if (backslashes % 2 == 1) {
        argument += L'"';
      } else if (isQuoted && at + 1 < line.size() && line[at + 1] == L'"') {
        argument += L'"';
        ++at;
        isQuoted = false;
      } else {
        isQuoted = !isQuoted;
      }
    }
  }
}

}  // namespace launcher_stub
