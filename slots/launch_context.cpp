#include "slots/launch_context.h"

#include <string>

#include "os/error_box.h"

namespace launcher_stub {

void reportOnce(LaunchContext& context, std::string_view message) {
  if (context.errorReported) return;
  os::showError(std::string(message));
  context.errorReported = true;
}

bool startFailed(const LaunchContext& context) { return context.startAttempted && !context.started; }

void clearStartFlags(LaunchContext& context) {
  context.startAttempted = false;
  context.started = false;
}

void recordChildExit(LaunchContext& context, std::uint32_t exitCode, bool clean) {
  context.childExitSeen = true;
  context.childExitCode = exitCode;
  context.childExitClean = clean;
}

}  // namespace launcher_stub
