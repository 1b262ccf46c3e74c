// The launcher's error box, seen from outside: real windows of another process.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/end_to_end/process.h"

namespace end_to_end {

struct ErrorWindow {
  void* window = nullptr;
  std::wstring title;
  std::wstring text;
  std::vector<std::wstring> buttons;
};

// Throws, saying so, where windows cannot be opened at all.
void requireDesktop();

// The visible top-level windows of a process.
std::vector<ErrorWindow> windowsOf(std::uint32_t processId);

// Waits for the first window of the process and until its text is there. Throws when none comes.
ErrorWindow waitForWindow(const Process& process);

// Presses the box's button, as a user would.
void pressButton(const ErrorWindow& box);

// Closes the window by its frame.
void closeWindow(const ErrorWindow& box);

}  // namespace end_to_end
