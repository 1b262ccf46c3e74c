// What the launcher asks of, and does to, its own process.
#pragma once

#include <string>

namespace launcher_stub::os {

// From here on this process loads libraries from the system's folder alone, never from the folder of its executable or
// the current directory. For those that the system itself loads later, and by bare name: the random source's, those of
// the error box. The imports of the executable are loaded before any of its code runs; they are of the kind that the
// loader takes from the system's folder anyway. Best effort: silent where the system refuses. No child inherits it.
void loadLibrariesFromSystemOnly() noexcept;

// Puts this process into a kill-on-close job of its own, so that a child which is not yet in its job cannot
// outlive a launcher that is killed. Best effort: silent where the system refuses.
void containThisProcess();

// The full path of this process's executable; empty when it cannot be had or may be cut off.
std::wstring launcherExecutablePath();

// Ends this process at once with exit code 3, without a word and without clean-up: the end of an uncaught exception.
[[noreturn]] void endThisProcessQuietly() noexcept;

}  // namespace launcher_stub::os
