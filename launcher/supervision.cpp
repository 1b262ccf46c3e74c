#include "launcher/supervision.h"

#include <optional>
#include <string>
#include <tuple>

#include "launcher/markers.h"
#include "launcher/messages.h"
#include "launcher/pending_file.h"
#include "launcher/transitions.h"
#include "os/clock.h"
#include "os/random.h"
#include "slots/file_names.h"
#include "slots/messages.h"
#include "state/decision.h"

namespace launcher_stub {
namespace {

// Which attempt is running: its slot and nonce, none while no child was started for it.
using AttemptIdentity = std::optional<std::tuple<std::string, std::string>>;

bool hasAttempt(const LaunchContext& context) { return context.model.selected && context.started; }

// Compared in place: every tick asks.
bool isAttempt(const LaunchContext& context, const AttemptIdentity& identity) {
  if (!hasAttempt(context)) return !identity.has_value();
  return identity == std::tie(*context.model.selected, context.model.nextNonce);
}

AttemptIdentity attemptIdentity(const LaunchContext& context) {
  if (!hasAttempt(context)) return std::nullopt;
  return std::tuple(*context.model.selected, context.model.nextNonce);
}

Durations durationsOf(const LaunchContext& context) { return {context.firstDuration, context.secondDuration}; }

// Looks whether the child has ended. False: the wait failed, and with it any way to supervise; the run ends.
bool pollChild(LaunchContext& context) {
  if (context.childExitSeen) return true;
  std::uint32_t exitCode = 0;
  bool clean = false;
  if (os::pollExit(context.child, exitCode, clean)) {
    recordChildExit(context, exitCode, clean);
  } else if (context.child.waitFailed) {
    reportOnce(context, messages::cannotEndTree);
    context.exitCode = 1;
    context.exitRequested = true;
    return false;
  }
  return true;
}

TickInput lookAtAttempt(const LaunchContext& context, bool childEnded) {
  TickInput input;
  if (!childEnded && hasAttempt(context)) {
    if (!context.model.settledMarkSeen) input.settledSeen = markerSeen(context, files::ready);
    if (context.attemptPhase == kindCandidate && !context.model.promotionMarkSeen) {
      input.promotionSeen = markerSeen(context, files::healthy);
    }
  }
  input.now = os::monotonicMilliseconds();
  input.durations = durationsOf(context);
  return input;
}

LauncherModel decideAfterEnd(const LaunchContext& context, std::uint64_t tickTime) {
  ExitInput input;
  input.exitCode = context.childExitCode;
  const FoundRestart restart = readRestartFile(context);
  input.restartPresent = restart.present;
  input.restart = restart.request;
  if (context.model.candidateTrialAllowed) {
    if (const auto pending = readPendingFile(context.stateRoot).request) input.extraRequestId = pending->requestId;
  }
  input.nextNonce = os::randomHexDigits();
  input.durations = durationsOf(context);
  input.now = tickTime;
  return decideExit(context.model, input);
}

// The child has ended: ends what it left behind, and commits what follows. False: given up, the run ends.
bool handleChildEnd(LaunchContext& context, std::uint64_t tickTime) {
  if (!os::endProcessTree(context.child)) reportOnce(context, messages::cannotEndTree);
  clearStartFlags(context);
  const LauncherModel next = decideAfterEnd(context, tickTime);
  return commitWithRetry(context, next, nullptr, messages::exitTransition) && commitSpawnFailures(context);
}

}  // namespace

SupervisionEnd superviseRuntime(LaunchContext& context) {
  AttemptIdentity lastSeen;
  TickWrites writes;
  for (;;) {
    if (!isAttempt(context, lastSeen)) {
      lastSeen = attemptIdentity(context);
      writes.failureStart = 0;
      writes.dropping = false;
    }
    if (!pollChild(context)) return SupervisionEnd::exit;
    const bool childEnded = context.childExitSeen;

    const TickInput tick = lookAtAttempt(context, childEnded);
    commitTick(context, decideTick(context.model, tick), writes, childEnded);
    if (context.exitRequested) return SupervisionEnd::exit;

    if (childEnded) {
      if (!handleChildEnd(context, tick.now) || context.exitRequested) return SupervisionEnd::exit;
      if (context.relaunchRequested) return SupervisionEnd::relaunch;
    }
    os::sleepMilliseconds(tickPeriodMs);
  }
}

}  // namespace launcher_stub
