#include "os/desktop.h"

#include <windows.h>

namespace launcher_stub::os {

void outlastOthersAtLogOff() noexcept {
  // Processes are ended from high levels to low ones. Each begins at 0x280, whatever its parent has; 0x100 to 0x3FF are
  // for programs to choose. The lowest: helpers of the runtime may have chosen low ones too, and live in our job.
  constexpr DWORD lastOfAllPrograms = 0x100;
  (void)SetProcessShutdownParameters(lastOfAllPrograms, 0);
}

void allowToComeToFront(std::uint32_t processId) noexcept { (void)AllowSetForegroundWindow(processId); }

void endStartingCursor() noexcept {
  // The cursor goes with the first message that a process takes from its queue by GetMessage; looking into an empty
  // queue is not said to do. So there has to be a message: without one GetMessage would never return.
  MSG message{};
  if (PostMessageW(nullptr, WM_NULL, 0, 0)) (void)GetMessageW(&message, nullptr, 0, 0);
}

}  // namespace launcher_stub::os
