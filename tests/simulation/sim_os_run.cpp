// The life of the launcher's process: its beginning, its two kinds of end, and its error box.
#include <algorithm>
#include <exception>
#include <utility>

#include "os/error_box.h"
#include "tests/simulation/sim_inside.h"
#include "tests/simulation/sim_os.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::sim {
namespace {

constexpr std::uint32_t boxWaitMs = 30'000;  // the entry point's
constexpr int uncaughtExceptionCode = 3;
constexpr int killedProcessCode = 1;
constexpr std::uint32_t pidStep = 4;

}  // namespace

int SimOs::runProcess(const std::function<int()>& launchSequence) {
  const InsidePlatform inside;
  beginProcess();
  try {
    {
      const OutsidePlatform outside;
      outcome_.exitCode = launchSequence();
    }
    outcome_.returnedAt = now();
    checkNothingLeftOpen();
    if (outcome_.exitCode != 0) os::waitForErrorBox(boxWaitMs);
  } catch (const LauncherKilled&) {
    outcome_.killed = true;
    outcome_.exitCode = killedProcessCode;
  } catch (const Runaway&) {
    outcome_.killed = true;  // noted as a problem already
    outcome_.exitCode = killedProcessCode;
  } catch (const std::exception& error) {
    outcome_.uncaught = error.what();
    outcome_.exitCode = uncaughtExceptionCode;
    checkNothingLeftOpen();
  }
  finishRun();
  return outcome_.exitCode;
}

RunOutcome SimOs::runSecondLauncher() {
  const ProcessState first = process_;
  const RunOutcome firstOutcome = outcome_;
  const bool firstRunning = std::exchange(running_, false);
  const std::uint64_t firstKillAtCall = std::exchange(killAtCall_, forever);
  const std::uint64_t firstKillAtChangePoint = std::exchange(killAtChangePoint_, forever);
  process_ = {};  // no process of its own yet: nothing that is open belongs to it

  (void)runLauncher();  // its outcome says more

  process_ = first;
  running_ = firstRunning;
  killAtCall_ = firstKillAtCall;
  killAtChangePoint_ = firstKillAtChangePoint;
  return std::exchange(outcome_, firstOutcome);
}

void SimOs::beginProcess() {
  checkNothingLeftOpen();
  process_ = {};
  process_.run = ++lastRun_;
  process_.pid = lastPid_ += pidStep;
  outcome_ = {};
  outcome_.startedAt = now();
  running_ = true;
  note("launcher starts", {}, "run " + std::to_string(process_.run));
  observer_->launcherStarts();
}

// An uncaught exception ends the process without waiting for a box, a kill all the more.
void SimOs::finishRun() {
  if (!dead_) endLauncherProcess();
  running_ = false;
  dead_ = false;
  killAtCall_ = forever;
  killAtChangePoint_ = forever;
  const Box* box = openedBox();
  if (outcome_.killed || !outcome_.uncaught.empty() || box == nullptr || box->closesAt <= now()) {
    outcome_.processEndedAt = now();
  } else {
    outcome_.processEndedAt = box->closesAt;
    if (box->closesAt != forever) advance(box->closesAt - now());
  }
  process_.box = -1;
  note("launcher ended", {}, "code " + std::to_string(outcome_.exitCode) + (outcome_.killed ? ", killed" : ""));
  observer_->launcherEnded(outcome_);
}

// What the system does when a process ends, for whatever reason.
void SimOs::endLauncherProcess() {
  for (HandleEntry* entry : handles_.openHandles(process_.run)) {
    // Not `closeHandle` on its own: an owner that is still to be unwound closes it once more.
    closeHandle(handles_.handleOf(*entry));
    entry->bySystem = entry->owned;
  }
  if (process_.contained) {
    for (const std::uint32_t pid : processes_.living()) {
      if (processes_.find(pid)->launcherRun == process_.run) terminate(pid, 0);
    }
  }
  for (const std::uint32_t pid : processes_.living()) {
    const Process& process = *processes_.find(pid);
    // Where the system refuses the launcher's own job, a kill between a child's creation and its job leaves it behind,
    // suspended: nothing can be done about that.
    if (process.suspended && process_.containmentRefused) continue;
    if (process.launcherRun == process_.run && !process.terminated) {
      problem("a process outlives its launcher: " + process.name + " " + std::to_string(process.pid));
    }
  }
  dead_ = true;
}

void SimOs::killLauncherNow() {
  if (!running_ || dead_) return;
  note("launcher killed", {}, "");
  endLauncherProcess();
  throw LauncherKilled{};
}

void SimOs::killLauncherAt(std::uint64_t ms) {
  at(ms, [this] { killLauncherNow(); });
}

void SimOs::checkNothingLeftOpen() {
  if (dead_) return;
  for (HandleEntry* entry : handles_.openHandles(process_.run)) {
    const OpenFile* file = entry->kind == HandleKind::file ? openFiles_.find(entry->object) : nullptr;
    problem("a handle is left open: " + HandleTable::describe(*entry) +
            (file != nullptr ? " " + printable(file->key) : std::string()));
    entry->owned = false;
    closeHandle(handles_.handleOf(*entry));  // noted once is enough
  }
}

std::wstring SimOs::executablePath() const { return executablePath_ ? *executablePath_ : installPath(L"launcher.exe"); }

void SimOs::openBox(const std::string& text) {
  process_.box = static_cast<int>(boxes_.size());
  boxes_.push_back({now(), boxStaysOpenFor_ == forever ? forever : now() + boxStaysOpenFor_, text, process_.run});
}

Box* SimOs::openedBox() {
  return process_.box >= 0 && process_.box < static_cast<int>(boxes_.size())
             ? &boxes_[static_cast<std::size_t>(process_.box)]
             : nullptr;
}

void SimOs::closeBox() {
  Box* box = openedBox();
  if (box == nullptr || box->closesAt <= now()) return problem("the test closes a box, but none is open");
  box->closesAt = now();
}

}  // namespace launcher_stub::sim
