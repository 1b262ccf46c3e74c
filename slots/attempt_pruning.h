// Housekeeping of attempt directories.
#pragma once

#include <string>

namespace launcher_stub {

// Removes the directories under `<state root>\attempts`, except the current attempt's and the newest other one.
// Plain files stay. Never fails: what cannot be removed gives one diagnostic line each.
void pruneAttempts(const std::wstring& stateRoot, const std::wstring& currentAttemptName);

}  // namespace launcher_stub
