#include "slots/transition_commit.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>

#include "os/clock.h"
#include "os/durable_file.h"
#include "os/log.h"
#include "os/messages.h"
#include "os/path.h"
#include "os/state_root.h"
#include "os/text.h"
#include "slots/file_names.h"
#include "slots/messages.h"
#include "slots/slot_store.h"

namespace launcher_stub {
namespace {

// What phase 1 is to write.
struct StateWrite {
  const TransitionEffect* effect = nullptr;  // the last one of the list: it holds the state as it will be
  bool savePrevious = false;                 // any of them asked for it
};

StateWrite findStateWrite(const LauncherModel& model) {
  StateWrite write;
  for (const TransitionEffect& effect : model.effects) {
    if (effect.kind != EffectKind::WriteBootState) continue;
    write.effect = &effect;
    write.savePrevious = write.savePrevious || effect.savePrevious;
  }
  return write;
}

void endRunWithError(LaunchContext& context) {
  reportOnce(context, messages::cannotEndTree);
  context.exitCode = 1;
  context.exitRequested = true;
}

// How the durable phases ended.
enum class Durable { done, failed, childEnded, childWaitFailed };

// A promotion is only good for a runtime that lives: looks at the child right before the write.
Durable guardRunning(LaunchContext& context) {
  if (context.childExitSeen) return Durable::childEnded;
  std::uint32_t exitCode = 0;
  bool clean = false;
  if (os::pollExit(context.child, exitCode, clean)) {
    recordChildExit(context, exitCode, clean);
    return Durable::childEnded;
  }
  return context.child.waitFailed ? Durable::childWaitFailed : Durable::done;
}

bool writeState(const LaunchContext& context, const StateWrite& write) {
  const auto* state = std::get_if<BootState>(&write.effect->record);
  if (state == nullptr) return false;
  // The copy first: if the power goes between the two, the old state stands in both files.
  if (write.savePrevious && context.keepsPrevious &&
      !os::replaceFileDurably(os::joinPath(context.stateRoot, files::previousBootState),
                              writeBootState(context.model.state))) {
    return false;
  }
  return os::replaceFileDurably(os::joinPath(context.stateRoot, files::bootState), writeBootState(*state));
}

bool beginAttempt(LaunchContext& context, const TransitionEffect& effect) {
  const auto* record = std::get_if<AttemptRecord>(&effect.record);
  if (record == nullptr) return false;
  context.attemptDirectory = os::joinPath(os::joinPath(context.stateRoot, files::attempts), effect.attemptName);
  return os::createPrivateDirectory(context.attemptDirectory) &&
         os::replaceFileDurably(os::joinPath(context.attemptDirectory, files::bootState), writeAttemptRecord(*record));
}

bool carryOutFileEffects(LaunchContext& context, const LauncherModel& model) {
  for (const TransitionEffect& effect : model.effects) {
    // Gone already counts as removed: a retry after a partly done commit finds no request any more.
    if (effect.kind == EffectKind::ClearPending &&
        !os::removeFile(os::joinPath(context.stateRoot, files::pendingRequest))) {
      return false;
    }
    if (effect.kind == EffectKind::BeginAttempt && !beginAttempt(context, effect)) return false;
  }
  return true;
}

std::wstring runtimeExecutable(const LaunchContext& context, const TransitionEffect& effect) {
  if (effect.number == std::int32_t{kindSeed}) return context.seedEntryPath;
  return os::joinPath(os::joinPath(os::joinPath(context.stateRoot, files::slots), effect.slot), files::entry);
}

// False: what is left of the last runtime could not be ended; the run ends.
bool startRuntime(LaunchContext& context, const TransitionEffect& effect) {
  if (os::jobHasActiveProcesses(context.child) && !os::endProcessTree(context.child)) {
    endRunWithError(context);
    return false;
  }
  os::resetChild(context.child);

  const std::wstring executable = runtimeExecutable(context, effect);
  context.startAttempted = true;
  context.started =
      os::startChild(context.child, {executable, context.arguments, context.installDirectory, context.stateRoot,
                                     context.attemptDirectory, context.launchLease.handle.get()});
  if (context.started) {
    context.childExitSeen = false;
    context.childExitCode = 0;
    context.childExitClean = false;
    context.child.waitFailed = false;
  } else {
    os::logLine(std::string(os::messages::cannotStart) + os::toSystemCodePage(executable));
  }
  return true;
}

// False: processing stops here.
bool carryOutEffect(LaunchContext& context, const TransitionEffect& effect) {
  switch (effect.kind) {
    case EffectKind::WriteBootState:
    case EffectKind::BeginAttempt:
    case EffectKind::ClearPending:
      return true;  // done under the lock
    case EffectKind::StartRuntime:
      return startRuntime(context, effect);
    case EffectKind::EndRuntimeTree:
      if (os::endProcessTree(context.child)) return true;
      endRunWithError(context);
      return false;
    case EffectKind::ReportError:
      if (const auto* message = std::get_if<std::string>(&effect.record)) reportOnce(context, *message);
      return true;
    case EffectKind::Exit:
      context.exitCode = effect.number;
      context.exitRequested = true;
      return true;
    case EffectKind::RequestRelaunch:
      context.relaunchRequested = true;
      return true;
  }
  return true;
}

void adoptModel(LaunchContext& context, LauncherModel model) {
  context.attemptPhase = model.selectedKind;
  if (needsStateLock(model)) context.firstWriteFailureTime = 0;
  model.effects.clear();
  context.model = std::move(model);
}

bool holdsStart(const LauncherModel& model) {
  return std::ranges::any_of(model.effects,
                             [](const TransitionEffect& effect) { return effect.kind == EffectKind::StartRuntime; });
}

// The effects that change files, in their fixed order: the boot state before all others.
Durable carryOutDurably(LaunchContext& context, const LauncherModel& model, bool childMayBeRunning) {
  const StateWrite write = findStateWrite(model);
  if (write.effect != nullptr) {
    if (childMayBeRunning && write.effect->requireRunning) {
      const Durable guarded = guardRunning(context);
      if (guarded != Durable::done) return guarded;
    }
    if (!writeState(context, write)) return Durable::failed;
  }
  return carryOutFileEffects(context, model) ? Durable::done : Durable::failed;
}

}  // namespace

bool needsStateLock(const LauncherModel& model) {
  return std::ranges::any_of(model.effects, [](const TransitionEffect& effect) {
    return effect.kind == EffectKind::WriteBootState || effect.kind == EffectKind::BeginAttempt ||
           effect.kind == EffectKind::ClearPending;
  });
}

bool applyTransition(LaunchContext& context, LauncherModel model, os::LockFile* heldStateLock, bool childMayBeRunning) {
  // Whatever way this scope is left, the lock goes with it: a lock kept across a pause would shut out the runtime.
  os::LockFile lock;
  if (heldStateLock != nullptr) lock.handle = std::move(heldStateLock->handle);
  if (needsStateLock(model) && !lock.handle &&
      !os::openLockFile(lock, os::joinPath(context.stateRoot, files::stateLock), os::LockWait::fiveSeconds)) {
    return false;
  }

  const Durable outcome = carryOutDurably(context, model, childMayBeRunning);
  os::closeLockFile(lock);  // it guards the files, not the start
  if (outcome == Durable::failed) return false;
  if (outcome == Durable::childWaitFailed) endRunWithError(context);
  if (outcome != Durable::done) return true;

  for (const TransitionEffect& effect : model.effects) {
    if (!carryOutEffect(context, effect)) break;
  }
  const bool hasStarted = context.started && holdsStart(model);
  adoptModel(context, std::move(model));
  // The model knows nothing of when its start came about: time-outs count from here, not from the machine's start.
  if (hasStarted) context.model.startTime = os::monotonicMilliseconds();
  return true;
}

}  // namespace launcher_stub
