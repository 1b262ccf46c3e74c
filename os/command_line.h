// The command line: this process's own, and the one that a child is given.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace launcher_stub::os {

// This process's arguments after the program's own path, split as the system splits them; empty when that fails.
std::vector<std::wstring> readCommandLineArguments();

// `argument` in double quotes, with backslashes and quotes escaped so that the system's splitter gives it back.
std::wstring quoteArgument(std::wstring_view argument);

// The quoted executable path, then each argument after one space, quoted whether or not it needs to be.
std::wstring buildCommandLine(std::wstring_view executable, const std::vector<std::wstring>& arguments);

}  // namespace launcher_stub::os
