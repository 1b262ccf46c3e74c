#include "os/command_line.h"

namespace launcher_stub::os {

std::wstring quoteArgument(std::wstring_view argument) {
  std::wstring quoted = L"\"";
  std::size_t backslashes = 0;  // seen since the last other character, not yet emitted
  for (const wchar_t character : argument) {
    if (character == L'\\') {
      ++backslashes;
      continue;
    }
    // The splitter reads backslashes as escapes only in front of a quote: there each one is doubled.
    quoted.append(character == L'"' ? 2 * backslashes + 1 : backslashes, L'\\');
    quoted += character;
    backslashes = 0;
  }
  quoted.append(2 * backslashes, L'\\');  // in front of the closing quote
  quoted += L'"';
  return quoted;
}

std::wstring buildCommandLine(std::wstring_view executable, const std::vector<std::wstring>& arguments) {
  std::wstring line = quoteArgument(executable);
  for (const std::wstring& argument : arguments) {
    line += L' ';
    line += quoteArgument(argument);
  }
  return line;
}

}  // namespace launcher_stub::os
