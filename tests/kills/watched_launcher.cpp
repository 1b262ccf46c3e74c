#include "tests/kills/watched_launcher.h"

#include <windows.h>

namespace end_to_end::kills {
namespace {

constexpr std::uint32_t killedCode = 250;  // of Process::kill
constexpr std::uint32_t lastWaitMs = 5'000;

// Of a process whose threads were all created suspended. The harness keeps no thread handle.
void resume(HANDLE process) {
  using Resume = LONG(WINAPI*)(HANDLE);
  static const auto resumeProcess = reinterpret_cast<Resume>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtResumeProcess")));
  if (resumeProcess == nullptr || resumeProcess(process) < 0) fail("cannot resume the launcher");
}

}  // namespace

WatchedLauncher::WatchedLauncher(Installation& installation)
    : job_(CreateJobObjectW(nullptr, nullptr)), launcher_(installation.start({.flags = CREATE_SUSPENDED})) {
  if (job_ == nullptr || !AssignProcessToJobObject(job_.get(), launcher_.process().handle())) {
    fail("cannot watch the launcher");
  }
  startedAt_ = milliseconds();
  resume(launcher_.process().handle());
}

// What a broken launcher has left running must not disturb the tests after this one.
WatchedLauncher::~WatchedLauncher() {
  if (counted() == 0) return;
  TerminateJobObject(job_.get(), killedCode);
  (void)treeEndsWithin(lastWaitMs);  // nothing more can be done
}

bool WatchedLauncher::kill() {
  launcher_.kill();
  return launcher_.exitCode() == killedCode;
}

std::uint32_t WatchedLauncher::counted() const {
  JOBOBJECT_BASIC_ACCOUNTING_INFORMATION accounts = {};
  if (!QueryInformationJobObject(job_.get(), JobObjectBasicAccountingInformation, &accounts, sizeof accounts,
                                 nullptr)) {
    fail("cannot count the launcher's processes");
  }
  return accounts.ActiveProcesses;
}

bool WatchedLauncher::treeEndsWithin(std::uint32_t limit) const {
  const std::uint64_t start = milliseconds();
  while (counted() != 0) {
    if (milliseconds() - start >= limit) return false;
    Sleep(1);
  }
  return true;
}

WatchedLauncher::Survivors WatchedLauncher::survivors() const {
  constexpr std::size_t mostIds = 64;
  struct {
    JOBOBJECT_BASIC_PROCESS_ID_LIST list;
    ULONG_PTR more[mostIds];
  } ids = {};
  if (!QueryInformationJobObject(job_.get(), JobObjectBasicProcessIdList, &ids, sizeof ids, nullptr)) {
    fail("cannot list the launcher's processes");
  }
  Survivors found;
  for (DWORD i = 0; i < ids.list.NumberOfProcessIdsInList; ++i) {
    const auto id = static_cast<DWORD>(ids.list.ProcessIdList[i]);
    const Handle process(OpenProcess(SYNCHRONIZE, FALSE, id));
    const bool hasEnded = process != nullptr && WaitForSingleObject(process.get(), 0) == WAIT_OBJECT_0;
    ++(hasEnded ? found.remains : found.living);
  }
  return found;
}

}  // namespace end_to_end::kills
