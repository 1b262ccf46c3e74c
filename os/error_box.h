// The error box: the launcher's only user interface.
#pragma once

#include <cstdint>
#include <string>

namespace launcher_stub::os {

// Writes `message` (UTF-8) as a diagnostic line; the first call of the process also opens a box with it, titled
// "Plinket launcher", on a thread of its own, and returns without waiting. Text that is not valid UTF-8 gives an empty
// box. The process cannot end by a normal return or exit before the box is closed: the task is waited for when the
// process's static objects are destroyed. To be called by one thread only. Throws what starting a thread throws.
void showError(const std::string& message);

// Waits until the box has been closed or `timeout` milliseconds have passed; returns at once where no box was opened.
void waitForErrorBox(std::uint32_t timeout);

// Waits for an open box and forgets it, so that the next showError opens one again. For tests of this very process.
void resetErrorBoxForTests();

}  // namespace launcher_stub::os
