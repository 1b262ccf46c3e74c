#include "os/error_box.h"

#include <windows.h>

#include <new>

#include "os/handle.h"
#include "os/log.h"
#include "os/messages.h"
#include "os/text.h"

namespace launcher_stub::os {
namespace {

// A task on a thread of its own that shows one box. A plain thread of the system, with what std::async promises: it
// runs at once, can be waited for with a limit, and is waited for without one in the end. That function would bring all
// of POSIX threads along, and its library's exceptions.
class BoxTask {
 public:
  BoxTask() = default;
  BoxTask(const BoxTask&) = delete;
  BoxTask& operator=(const BoxTask&) = delete;
  BoxTask(BoxTask&&) = delete;
  BoxTask& operator=(BoxTask&&) = delete;
  ~BoxTask() { wait(INFINITE); }

  bool wasStarted() const { return thread_ != nullptr; }

  // A thread is memory, in the first place: there is none when it cannot be had.
  void start(std::wstring text) {
    text_ = std::move(text);
    thread_ = adoptHandle(CreateThread(nullptr, 0, show, this, 0, nullptr));
    if (thread_ == nullptr) throw std::bad_alloc();
  }

  void wait(DWORD timeout) const {
    if (wasStarted()) (void)WaitForSingleObject(thread_.get(), timeout);  // what comes next is the same
  }

  void forget() {
    wait(INFINITE);
    thread_.reset();
  }

 private:
  // Nothing here throws, and nothing is allocated: the thread is none of the run-time library's.
  static DWORD WINAPI show(void* task) {
    const std::wstring& text = static_cast<const BoxTask*>(task)->text_;
    (void)MessageBoxW(nullptr, text.c_str(), messages::errorBoxTitle.data(), MB_OK | MB_ICONERROR);  // best effort
    return 0;
  }

  std::wstring text_;  // not touched while the thread runs
  OwnedHandle thread_;
};

// The one box of this process. As a static object it is destroyed at a normal exit, which waits for the user to close
// the box.
BoxTask boxTask;

}  // namespace

void showError(const std::string& message) {
  logLine(message);
  if (!boxTask.wasStarted()) boxTask.start(toWide(message));
}

void waitForErrorBox(std::uint32_t timeout) { boxTask.wait(timeout); }

void resetErrorBoxForTests() { boxTask.forget(); }

}  // namespace launcher_stub::os
