#include "launcher/transitions.h"

#include <string>
#include <utility>

#include "launcher/messages.h"
#include "os/clock.h"
#include "os/log.h"
#include "os/random.h"
#include "slots/transition_commit.h"
#include "state/decision.h"

namespace launcher_stub {
namespace {

void logTransition(std::string_view transitionName, std::string_view what) {
  os::logLine(std::string(transitionName) + std::string(what));
}

// The retrying line goes out at the first failure and then once in 30 s.
void logRetrying(std::string_view transitionName, std::uint64_t now, std::uint64_t& lastLogTime) {
  if (lastLogTime != 0 && now - lastLogTime < writeFailureLimitMs) return;
  logTransition(transitionName, messages::writeFailedRetrying);
  lastLogTime = now;
}

}  // namespace

void noteWriteFailure(LaunchContext& context) {
  const std::uint64_t now = os::monotonicMilliseconds();
  if (context.firstWriteFailureTime == 0) {
    context.firstWriteFailureTime = now;
  } else if (now - context.firstWriteFailureTime >= writeFailureLimitMs) {
    reportOnce(context, messages::cannotWriteState);
  }
}

bool commitWithRetry(LaunchContext& context, const LauncherModel& model, os::LockFile* heldStateLock,
                     std::string_view transitionName) {
  std::uint64_t loopStart = 0;
  std::uint64_t lastLogTime = 0;
  while (!applyTransition(context, model, heldStateLock, /*childMayBeRunning=*/false)) {
    noteWriteFailure(context);
    const std::uint64_t now = os::monotonicMilliseconds();
    if (loopStart == 0) loopStart = now;
    if (now - loopStart >= writeFailureLimitMs) {
      reportOnce(context, messages::cannotWriteState);
      logTransition(transitionName, messages::writeFailedExiting);
      context.exitCode = 1;
      return false;
    }
    logRetrying(transitionName, now, lastLogTime);
    os::sleepMilliseconds(commitRetryPauseMs);
  }
  return true;
}

bool commitSpawnFailures(LaunchContext& context) {
  if (context.exitRequested) return true;
  while (startFailed(context)) {
    clearStartFlags(context);
    const SpawnInput input{.started = false,
                           .nextNonce = os::randomHexDigits(),
                           .durations = {context.firstDuration, context.secondDuration},
                           .now = os::monotonicMilliseconds()};
    const LauncherModel next = decideSpawn(context.model, input);
    if (!commitWithRetry(context, next, nullptr, messages::spawnFailureTransition)) return false;
  }
  return true;
}

void commitTick(LaunchContext& context, LauncherModel model, TickWrites& writes, bool childEnded) {
  if (writes.dropping && needsStateLock(model)) return;
  if (applyTransition(context, std::move(model), nullptr, /*childMayBeRunning=*/true)) {
    if (!childEnded) {
      writes.failureStart = 0;
      writes.lastLogTime = 0;
    }
    return;
  }

  noteWriteFailure(context);
  const std::uint64_t now = os::monotonicMilliseconds();
  if (writes.failureStart == 0) writes.failureStart = now;
  if (now - writes.failureStart < writeFailureLimitMs) {
    logRetrying(messages::tickMetadata, now, writes.lastLogTime);
  } else {
    reportOnce(context, messages::cannotWriteState);
    logTransition(messages::tickMetadata, messages::writeFailedDropping);
    writes.dropping = true;
  }
}

}  // namespace launcher_stub
