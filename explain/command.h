// The command line of launcher-explain, from its arguments to what it prints.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "explain/findings.h"

namespace launcher_stub::explain {

enum ExitCode : int { exitStarts = 0, exitUsage = 2, exitNothingStarts = 3 };

// What differs between the systems that the program runs on.
struct Host {
  bool looksAtCopies = false;
  // Programs that run from a directory; none where that cannot be known.
  std::optional<std::vector<ProgramFinding>> (*programsIn)(const std::wstring& directory) = nullptr;
};

struct Answer {
  ExitCode exitCode = exitStarts;
  std::string output;  // UTF-8, for standard output
  std::string errors;  // UTF-8, for standard error
};

// `arguments`: without the program's own name.
Answer answer(const std::vector<std::wstring>& arguments, const Host& host);

}  // namespace launcher_stub::explain
