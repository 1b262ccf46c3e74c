// The one operation that changes the outside world.
#pragma once

#include "slots/launch_context.h"

namespace launcher_stub {

// Carries out `model.effects`: the boot state, then the pending request and the attempt directory, both under
// "state.lock"; then, without the lock, everything else in order; then the context takes over the model.
//
// `heldStateLock`: the state lock that the caller already holds; closed here in every case. Null, or one without a
// handle: the commit takes the lock itself where an effect needs it. `childMayBeRunning`: a write that is only good
// for a running runtime polls it first, and is given up when it has ended.
//
// True: carried out (or overtaken by the child's end, or ended with an exit request). False: a durable step failed;
// nothing of the model is taken over, and the caller repeats the whole transition with the same model.
bool applyTransition(LaunchContext& context, LauncherModel model, os::LockFile* heldStateLock, bool childMayBeRunning);

// True when an effect writes state files or begins an attempt, so that the commit needs the state lock.
bool needsStateLock(const LauncherModel& model);

}  // namespace launcher_stub
