// Job objects: a set of processes that can be ended together.
#pragma once

#include "os/handle.h"

namespace launcher_stub::os {

// A new unnamed job whose processes end when its last handle is closed. Null where the system refuses.
OwnedHandle createKillOnCloseJob();

}  // namespace launcher_stub::os
