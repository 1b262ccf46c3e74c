// The launcher's life between the entry point and the exit code.
#pragma once

namespace launcher_stub {

// Runs the launch sequence to its end and returns the process's exit code: what the decision step chose, 0 when
// another launcher holds the lease, else 1. Both arguments come from the entry point and are ignored.
int run(void* instance, void* previousInstance);

}  // namespace launcher_stub
