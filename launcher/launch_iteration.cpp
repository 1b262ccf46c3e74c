#include "launcher/launch_iteration.h"

#include <optional>
#include <string>
#include <utility>

#include "launcher/generation_probe.h"
#include "launcher/messages.h"
#include "launcher/pending_file.h"
#include "launcher/transitions.h"
#include "os/clock.h"
#include "os/durable_file.h"
#include "os/file_status.h"
#include "os/path.h"
#include "os/random.h"
#include "slots/attempt_pruning.h"
#include "slots/file_names.h"
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

std::optional<BootState> readBootStateFile(const std::wstring& path) {
  std::string document;
  BootState state;
  std::string error;
  if (!os::readStateFile(path, document) || !readBootState(document, state, error)) return std::nullopt;
  return state;
}

void readStoredState(const LaunchContext& context, StartInput& input) {
  input.primary = readBootStateFile(os::joinPath(context.stateRoot, files::bootState));
  if (!input.primary) input.backup = readBootStateFile(os::joinPath(context.stateRoot, files::previousBootState));
}

// What can still be said of a "boot-v1.json" that gave no state.
void probeStoredFiles(const LaunchContext& context, StartInput& input) {
  if (input.primary) return;
  const std::wstring primary = os::joinPath(context.stateRoot, files::bootState);
  const std::wstring backup = os::joinPath(context.stateRoot, files::previousBootState);
  input.generationFloor = probeGeneration(primary);
  input.firstRun = os::pathIsMissing(primary) && os::pathIsMissing(backup);
}

const BootState* storedState(const StartInput& input) {
  if (input.primary) return &*input.primary;
  return input.backup ? &*input.backup : nullptr;
}

// From here on the state that was read is the one in force, which a bumping write keeps as the previous one.
void adoptStoredState(LaunchContext& context, const StartInput& input) {
  const BootState* state = storedState(input);
  context.keepsPrevious = state != nullptr;
  if (state != nullptr) context.model.state = *state;
}

void readRequest(const LaunchContext& context, bool bootstrapUnderstood, StartInput& input) {
  if (!bootstrapUnderstood) return;
  const FoundPending found = readPendingFile(context.stateRoot);
  input.candidateTrialAllowed = !found.unsupportedMajor;
  input.pending = found.request;
}

void findRunnableSlots(const LaunchContext& context, StartInput& input) {
  const PendingRequest* pending = input.pending ? &*input.pending : nullptr;
  CheckedSlots checked = checkSlots(context.stateRoot, context.seedEntryPath, storedState(input), pending);
  input.runnableSlots = std::move(checked.usable);
  input.exempt = std::move(checked.ignored);
  // Nothing comes after the seed, so one that cannot be looked at is still tried.
  input.seedRunnable = !os::pathIsMissing(context.seedEntryPath);
}

StartInput gatherStartInput(LaunchContext& context, bool bootstrapUnderstood) {
  StartInput input;
  readStoredState(context, input);
  adoptStoredState(context, input);
  readRequest(context, bootstrapUnderstood, input);
  input.nextNonce = os::randomHexDigits();
  pruneAttempts(context.stateRoot, std::wstring(input.nextNonce.begin(), input.nextNonce.end()));
  findRunnableSlots(context, input);
  probeStoredFiles(context, input);
  input.durations = {context.firstDuration, context.secondDuration};
  input.now = os::monotonicMilliseconds();
  return input;
}

}  // namespace

bool launchIteration(LaunchContext& context, bool bootstrapUnderstood) {
  forgetLastIteration(context);
  const LauncherModel next = decideStart(gatherStartInput(context, bootstrapUnderstood));
  if (!commitWithRetry(context, next, &context.stateLock, messages::launchTransition)) return false;
  context.firstDuration = healthyWithinMs;
  context.secondDuration = soakMs;
  return commitSpawnFailures(context);
}

}  // namespace launcher_stub
