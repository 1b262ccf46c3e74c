#include "tests/call_faults/runtimes.h"

#include <array>
#include <stdexcept>

namespace call_faults {
namespace {

constexpr DWORD patienceMs = 20'000;  // real time; a busy machine is slow

std::wstring eventName(const wchar_t* what) {
  return L"call_faults " + std::to_wstring(GetCurrentProcessId()) + L" " + what;
}

HANDLE createEvent(const wchar_t* what) {
  HANDLE event = CreateEventW(nullptr, FALSE, FALSE, eventName(what).c_str());
  if (event == nullptr) throw std::runtime_error("CreateEventW");
  return event;
}

bool hasEnded(HANDLE process, DWORD patience) { return WaitForSingleObject(process, patience) == WAIT_OBJECT_0; }

bool grandchildLives() {
  HANDLE event = OpenEventW(SYNCHRONIZE, FALSE, eventName(L"grandchild").c_str());
  if (event == nullptr) return false;
  CloseHandle(event);
  return true;
}

}  // namespace

Runtimes::Runtimes() : settled_(createEvent(L"settled")), end_(createEvent(L"end")) {
  SetEnvironmentVariableW(L"CALL_FAULTS_EVENTS", eventName(L"").c_str());
}

Runtimes::~Runtimes() {
  begin({});
  CloseHandle(settled_);
  CloseHandle(end_);
}

void Runtimes::begin(const std::map<std::wstring, RuntimePlan>& plans) {
  for (const Run& run : runs_) CloseHandle(run.process);
  runs_.clear();
  plans_ = plans;
  ResetEvent(settled_);
  ResetEvent(end_);
}

void Runtimes::created(HANDLE process, HANDLE thread, const std::wstring& executable) {
  Run run{.executable = executable, .threadId = GetThreadId(thread)};
  if (!DuplicateHandle(GetCurrentProcess(), process, GetCurrentProcess(), &run.process, 0, FALSE,
                       DUPLICATE_SAME_ACCESS)) {
    throw std::runtime_error("DuplicateHandle");
  }
  runs_.push_back(run);
}

void Runtimes::resumed(HANDLE thread, std::uint64_t now) {
  if (runs_.empty() || runs_.back().threadId != GetThreadId(thread)) return;
  Run& run = runs_.back();
  run.resumed = true;
  const std::array<HANDLE, 2> either = {run.process, settled_};
  const DWORD outcome = WaitForMultipleObjects(2, either.data(), FALSE, patienceMs);
  if (outcome == WAIT_OBJECT_0 + 1) run.endsAt = now + plans_[run.executable].lifeMs;
}

void Runtimes::timePassed(std::uint64_t now) {
  for (Run& run : runs_) {
    if (run.endsAt == 0 || now < run.endsAt) continue;
    run.endsAt = 0;
    if (hasEnded(run.process, 0)) continue;
    SetEvent(end_);
    (void)hasEnded(run.process, patienceMs);
    ResetEvent(end_);
  }
}

void Runtimes::jobEnded(HANDLE job) {
  JOBOBJECT_BASIC_ACCOUNTING_INFORMATION accounting{};
  for (DWORD waited = 0; waited < patienceMs; ++waited) {
    if (!QueryInformationJobObject(job, JobObjectBasicAccountingInformation, &accounting, sizeof accounting, nullptr)) {
      return;
    }
    if (accounting.ActiveProcesses == 0) return;
    Sleep(1);
  }
}

std::vector<std::wstring> Runtimes::survivors() {
  std::vector<std::wstring> found;
  for (const Run& run : runs_) {
    if (hasEnded(run.process, patienceMs)) continue;
    found.push_back(run.executable);
    TerminateProcess(run.process, 1);
    (void)hasEnded(run.process, patienceMs);
  }
  for (DWORD waited = 0; grandchildLives(); ++waited) {
    if (waited == patienceMs) {
      found.emplace_back(L"grandchild");
      break;
    }
    Sleep(1);
  }
  return found;
}

}  // namespace call_faults
