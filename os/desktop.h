// Manners towards the user's desktop, on which the launcher has no window of its own. All best effort: where the system
// refuses, nothing is said and everything else goes on as before.
#pragma once

#include <cstdint>

namespace launcher_stub::os {

// At log-off this process is ended after those that keep the default shutdown level, and after all others that chose a
// level above the lowest that programs may have. No child inherits that.
void outlastOthersAtLogOff() noexcept;

// Lets a process bring its window to the front, as far as this one may do that itself. `processId`: of one that has
// not run yet; afterwards it could be too late for its first window.
void allowToComeToFront(std::uint32_t processId) noexcept;

// Takes away the "starting" cursor that the user still sees for this process. It opens no window and does not wait.
void endStartingCursor() noexcept;

}  // namespace launcher_stub::os
