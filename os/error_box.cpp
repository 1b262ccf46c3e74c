#include "os/error_box.h"

#include <windows.h>

#include <chrono>
#include <future>

#include "os/log.h"
#include "os/messages.h"
#include "os/text.h"

namespace launcher_stub::os {
namespace {

// The one box of this process. Its result is never fetched, so it stays valid from the first box on. As a static
// object it is destroyed at a normal exit, which waits for the user to close the box.
std::future<void> boxTask;

}  // namespace

void showError(const std::string& message) {
  logLine(message);
  if (boxTask.valid()) return;
  boxTask = std::async(std::launch::async, [text = toWide(message)] {
    (void)MessageBoxW(nullptr, text.c_str(), messages::errorBoxTitle.data(), MB_OK | MB_ICONERROR);  // best effort
  });
}

void waitForErrorBox(std::uint32_t timeout) {
  if (boxTask.valid()) (void)boxTask.wait_for(std::chrono::milliseconds(timeout));  // what comes next is the same
}

void resetErrorBoxForTests() { boxTask = {}; }

}  // namespace launcher_stub::os
