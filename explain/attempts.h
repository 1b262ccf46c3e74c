// What the attempts that are still on the disk show.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "explain/findings.h"

namespace launcher_stub::explain {

// The directories under "attempts", the newest first. `state` and `requestId` are those in force: a restart request may
// name one of them.
std::vector<AttemptFinding> lookAtAttempts(const std::wstring& stateRoot, const std::optional<BootState>& state,
                                           const std::optional<std::string>& requestId);

}  // namespace launcher_stub::explain
