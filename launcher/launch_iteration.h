// One launch iteration: from reading the state files to the committed launch transition.
#pragma once

#include "slots/launch_context.h"

namespace launcher_stub {

// Reads the state files anew, decides, commits and starts. `context.stateLock` is held on entry and released on
// return. `bootstrapUnderstood`: otherwise pending requests are ignored. False: a transition could not be written for
// 30 s; the run ends with exit code 1.
bool launchIteration(LaunchContext& context, bool bootstrapUnderstood);

}  // namespace launcher_stub
