// Finds out what the next start of an installation would do, by the launcher's own readers and its own decision step.
// Only reads, and never opens a lock file.
#pragma once

#include <optional>
#include <string>

#include "explain/findings.h"

namespace launcher_stub::explain {

struct Question {
  std::wstring installDirectory;
  std::optional<std::wstring> stateRoot;  // none: where the bootstrap says
  bool looksAtCopies = false;             // what the bootstrap says of absolute paths is true on another machine only
};

// None: there is nothing to explain, and `error` says why (UTF-8).
std::optional<Findings> explainStart(const Question& question, std::string& error);

}  // namespace launcher_stub::explain
