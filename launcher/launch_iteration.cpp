#include "launcher/launch_iteration.h"

#include <string>

#include "launcher/messages.h"
#include "launcher/start_input.h"
#include "launcher/transitions.h"
#include "os/clock.h"
#include "os/random.h"
#include "slots/attempt_pruning.h"
#include "slots/slot_store.h"
#include "state/decision.h"

namespace launcher_stub {
namespace {

// Nothing that an earlier iteration learnt is used again. What counts for the whole run stays: the error flag, the
// first write failure time and the lease.
void forgetLastIteration(LaunchContext& context) {
  context.model = LauncherModel{};
  context.attemptDirectory.clear();
  context.relaunchRequested = false;
  clearStartFlags(context);
  context.childExitSeen = false;
  context.childExitCode = 0;
  context.childExitClean = false;
  context.keepsPrevious = false;
  context.firstDuration = healthyWithinMs;
}

// From here on the state that was read is the one in force, which a bumping write keeps as the previous one.
void adoptStoredState(LaunchContext& context, const StartInput& input) {
  const BootState* state = storedState(input);
  context.keepsPrevious = state != nullptr;
  if (state != nullptr) context.model.state = *state;
}

void drawNonceAndPrune(const std::wstring& stateRoot, StartInput& input) {
  input.nextNonce = os::randomHexDigits();
  pruneAttempts(stateRoot, std::wstring(input.nextNonce.begin(), input.nextNonce.end()));
}

StartInput readForStart(LaunchContext& context, bool bootstrapUnderstood) {
  StartInput input = gatherStartInput(context.stateRoot, context.seedEntryPath, bootstrapUnderstood,
                                      {drawNonceAndPrune, reportForeignDelivery});
  adoptStoredState(context, input);
  input.durations = {context.firstDuration, context.secondDuration};
  input.now = os::monotonicMilliseconds();
  return input;
}

}  // namespace

bool launchIteration(LaunchContext& context, bool bootstrapUnderstood) {
  forgetLastIteration(context);
  const LauncherModel next = decideStart(readForStart(context, bootstrapUnderstood));
  if (!commitWithRetry(context, next, &context.stateLock, messages::launchTransition)) return false;
  context.firstDuration = healthyWithinMs;
  context.secondDuration = soakMs;
  return commitSpawnFailures(context);
}

}  // namespace launcher_stub
