#include "os/child_process.h"

#include <windows.h>

#include <algorithm>
#include <optional>

#include "os/child_environment.h"
#include "os/clock.h"
#include "os/command_line.h"
#include "os/desktop.h"
#include "os/job.h"
#include "os/log.h"
#include "os/messages.h"
#include "os/text.h"

namespace launcher_stub::os {
namespace {

// The one handle that a child inherits, in the form in which a start takes it. The system keeps the address of the
// handle, so this object stays where it is, and alive, until the process has been created.
class HandleList {
 public:
  explicit HandleList(HANDLE inherited) : inherited_(inherited) {}
  HandleList(const HandleList&) = delete;
  HandleList& operator=(const HandleList&) = delete;
  HandleList(HandleList&&) = delete;
  HandleList& operator=(HandleList&&) = delete;
  ~HandleList() {
    if (initialised_) DeleteProcThreadAttributeList(get());
  }

  // False: the system's last error says why.
  bool build() {
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);  // fails by design: it only tells the size
    if (size == 0) return false;
    words_.resize((size + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t));
    initialised_ = InitializeProcThreadAttributeList(get(), 1, 0, &size) != FALSE;
    return initialised_ && UpdateProcThreadAttribute(get(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, &inherited_,
                                                     sizeof inherited_, nullptr, nullptr);
  }

  LPPROC_THREAD_ATTRIBUTE_LIST get() { return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(words_.data()); }

 private:
  HANDLE inherited_;
  std::vector<std::uint64_t> words_;  // whole 8-byte words: the list holds pointers
  bool initialised_ = false;
};

// A process that has been created and has not run yet.
struct SuspendedProcess {
  OwnedHandle process;
  OwnedHandle thread;
  DWORD processId = 0;
};

OwnedHandle duplicateInheritable(HANDLE handle) {
  HANDLE duplicate = nullptr;
  DuplicateHandle(GetCurrentProcess(), handle, GetCurrentProcess(), &duplicate, 0, TRUE, DUPLICATE_SAME_ACCESS);
  return adoptHandle(duplicate);
}

// Fills `created`, or returns the error code: as a result, since the strings are freed on the way out.
DWORD createSuspended(const ChildStart& start, HANDLE lease, HandleList& inherited, SuspendedProcess& created) {
  STARTUPINFOEXW startup{};
  startup.StartupInfo.cb = sizeof startup;
  startup.lpAttributeList = inherited.get();
  // Suspended until it is in its job: a child that runs sooner could start helpers that nothing can end.
  constexpr DWORD flags = EXTENDED_STARTUPINFO_PRESENT | CREATE_UNICODE_ENVIRONMENT | CREATE_SUSPENDED;

  std::wstring line = buildCommandLine(start.executable, start.arguments);
  std::wstring environment = buildChildEnvironment(start.installDirectory, start.stateRoot, start.attemptDirectory,
                                                   reinterpret_cast<std::uintptr_t>(lease));
  if (environment.empty()) return GetLastError();

  PROCESS_INFORMATION information{};
  if (!CreateProcessW(start.executable.c_str(), line.data(), nullptr, nullptr, TRUE, flags, environment.data(), nullptr,
                      &startup.StartupInfo, &information)) {
    return GetLastError();
  }
  created.process = adoptHandle(information.hProcess);
  created.thread = adoptHandle(information.hThread);
  created.processId = information.dwProcessId;
  return ERROR_SUCCESS;
}

// From the lease to the suspended process; says in a line what failed. The duplicate of the lease is closed when this
// returns, and before anything is reported.
bool createWithLease(const ChildStart& start, SuspendedProcess& created) {
  OwnedHandle lease = duplicateInheritable(start.lease);
  if (lease == nullptr) {
    logLine(failedAction(messages::cannotDuplicateLease, GetLastError()));
    return false;
  }
  HandleList inherited(lease.get());
  if (!inherited.build()) {
    const DWORD code = GetLastError();
    lease.reset();
    logLine(failedAction(messages::cannotBuildHandleList, code));
    return false;
  }
  const DWORD code = createSuspended(start, lease.get(), inherited, created);
  lease.reset();
  if (created.process != nullptr) return true;
  logLine(failedAction(std::string(messages::cannotStart) + toUtf8(start.executable), code));
  return false;
}

// Lets the process run inside a new job. `job` is filled as far as it got, also on failure.
bool resumeInJob(const SuspendedProcess& created, OwnedHandle& job) {
  constexpr auto resumeFailed = static_cast<DWORD>(-1);
  job = createKillOnCloseJob();
  if (job == nullptr || !AssignProcessToJobObject(job.get(), created.process.get())) return false;
  // The user has started us and not it: without this its window may open behind the others.
  allowToComeToFront(created.processId);
  return ResumeThread(created.thread.get()) != resumeFailed;
}

std::optional<DWORD> activeProcesses(HANDLE job) {
  JOBOBJECT_BASIC_ACCOUNTING_INFORMATION accounting{};
  if (!QueryInformationJobObject(job, JobObjectBasicAccountingInformation, &accounting, sizeof accounting, nullptr)) {
    return std::nullopt;
  }
  return accounting.ActiveProcesses;
}

// Ends the job's processes again and again, since one that is just starting another may escape the first time.
bool terminateUntilEmpty(HANDLE job, std::uint64_t deadline) {
  while (TerminateJobObject(job, 1)) {
    const std::optional<DWORD> active = activeProcesses(job);
    if (!active.has_value()) return false;
    if (*active == 0) return true;
    const std::uint64_t now = monotonicMilliseconds();
    if (now >= deadline) return false;
    sleepMilliseconds(static_cast<std::uint32_t>(std::min<std::uint64_t>(deadline - now, endTreePauseMs)));
  }
  return false;
}

}  // namespace

bool startChild(ChildProcess& child, const ChildStart& start) {
  SuspendedProcess created;
  if (!createWithLease(start, created)) return false;

  OwnedHandle job;
  if (!resumeInJob(created, job)) {
    (void)TerminateProcess(created.process.get(), 1);
    (void)WaitForSingleObject(created.process.get(), INFINITE);
    created = {};
    job.reset();
    logLine(messages::cannotCreateChildJob);
    return false;
  }
  // Not before: until now something is being started, and the child's start is worth more than the cursor.
  endStartingCursor();
  child.job = std::move(job);
  child.process = std::move(created.process);
  child.exited = false;
  child.endDeadline = 0;
  return true;
}

bool pollExit(ChildProcess& child, std::uint32_t& exitCode, bool& clean) {
  if (child.process == nullptr || child.exited) return false;
  const DWORD outcome = WaitForSingleObject(child.process.get(), 0);
  if (outcome == WAIT_TIMEOUT) return false;
  if (outcome == WAIT_FAILED) {
    child.waitFailed = true;
    return false;
  }
  DWORD code = 1;
  if (!GetExitCodeProcess(child.process.get(), &code)) code = 1;
  exitCode = code;
  clean = code == 0;
  child.exited = true;
  return true;
}

bool jobHasActiveProcesses(ChildProcess& child) {
  if (child.job == nullptr) return false;
  const std::optional<DWORD> active = activeProcesses(child.job.get());
  if (active.has_value()) return *active > 0;
  child.waitFailed = true;
  return true;
}

bool endProcessTree(ChildProcess& child) {
  if (child.job == nullptr) return true;
  if (child.endDeadline == 0) child.endDeadline = monotonicMilliseconds() + endTreeLimitMs;
  if (terminateUntilEmpty(child.job.get(), child.endDeadline)) return true;
  child.waitFailed = true;
  return false;
}

void resetChild(ChildProcess& child) {
  child.process.reset();
  child.job.reset();
  child.endDeadline = 0;
}

}  // namespace launcher_stub::os
