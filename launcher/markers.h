// What the runtime leaves in its attempt directory.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "slots/launch_context.h"
#include "state/restart_request.h"

namespace launcher_stub {

// True when the attempt directory holds `marker` and it carries the slot and nonce of the running attempt. Anything
// else (foreign, half-written, unreadable) counts as absent, silently.
bool markerSeen(const LaunchContext& context, std::wstring_view marker);

struct FoundRestart {
  bool present = false;                   // not absent: there in whatever condition
  std::optional<RestartRequest> request;  // read and parsed
};
FoundRestart readRestartFile(const LaunchContext& context);

}  // namespace launcher_stub
