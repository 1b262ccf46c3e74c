// What the runtime leaves in its attempt directory.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "slots/launch_context.h"
#include "state/launcher_model.h"
#include "state/restart_request.h"

namespace launcher_stub {

// True when `attemptDirectory` holds `marker` and it carries the slot and nonce of the attempt that runs in `model`.
// Anything else (foreign, half-written, unreadable) counts as absent, silently.
bool markerSeen(const std::wstring& attemptDirectory, const LauncherModel& model, std::wstring_view marker);

// The same for the running attempt.
inline bool markerSeen(const LaunchContext& context, std::wstring_view marker) {
  return markerSeen(context.attemptDirectory, context.model, marker);
}

struct FoundRestart {
  bool present = false;                   // not absent: there in whatever condition
  std::optional<RestartRequest> request;  // read and parsed
};
FoundRestart readRestartFile(const std::wstring& attemptDirectory);
inline FoundRestart readRestartFile(const LaunchContext& context) { return readRestartFile(context.attemptDirectory); }

}  // namespace launcher_stub
