// How a run's result becomes the end of the process.
#pragma once

#include <cstdint>

#include "os/error_box.h"

namespace launcher_stub {

constexpr std::uint32_t errorBoxWaitMs = 30'000;

// Returns `result`, the process's exit code: at once for 0, otherwise after the box has been closed or 30 s have
// passed. A box that is still open then keeps the process alive until it is closed.
inline int endRun(int result) {
  if (result != 0) os::waitForErrorBox(errorBoxWaitMs);
  return result;
}

// Runs `sequence` to the process's exit code. An exception that it lets out passes through; it is caught here first so
// that everything below has been unwound by then, which is not certain for an exception that nobody catches.
template <typename Sequence>
int runToEnd(Sequence sequence) {
  try {
    return endRun(sequence());
  } catch (...) {
    throw;
  }
}

}  // namespace launcher_stub
