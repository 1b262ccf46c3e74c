// The calls that start, watch and end processes, and those that tell and pass the time.
#include "tests/call_faults/replacement.h"

#define DESCRIBES(function) static constexpr std::string_view name = #function

namespace call_faults {
namespace {

// Real time for what ends at once on a machine that is not busy.
constexpr DWORD patienceMs = 20'000;

struct CreateProcessWCall : FailsWithFalse {
  DESCRIBES(CreateProcessW);
  static std::vector<Refusal> refusals() { return codes({5, 2, 3, 32, 193, 216, 740, 1260, 1450}); }
  static std::wstring subject(LPCWSTR path, const auto&...) { return path; }
  static void done(bool, bool, BOOL result, LPCWSTR path, const auto&, const auto&, const auto&, BOOL, DWORD flags,
                   const auto&, const auto&, const auto&, LPPROCESS_INFORMATION information) {
    if (!result) return;
    watch().changed();
    watch().acquired(Resource::handle, information->hProcess, name, L"process");
    watch().acquired(Resource::handle, information->hThread, name, L"thread");
    watch().runtimes().created(information->hProcess, information->hThread, path);
    if ((flags & CREATE_SUSPENDED) == 0) watch().wrong("a runtime is created running");
  }
};

// The launcher's one thread besides its first: for the box.
struct CreateThreadCall : FailsWithNull {
  DESCRIBES(CreateThread);
  static std::vector<Refusal> refusals() { return codes({8, 1455}); }
  static void done(bool byLauncher, bool, HANDLE result, const auto&...) {
    if (byLauncher && result != nullptr) watch().boxIsShownBy(result);
  }
};

struct ResumeThreadCall : FailsWith<static_cast<DWORD>(-1)> {
  DESCRIBES(ResumeThread);
  static std::vector<Refusal> refusals() { return codes({5, 6}); }
  static void done(bool, bool, DWORD result, HANDLE thread) {
    if (result == static_cast<DWORD>(-1)) return;
    watch().changed();
    watch().runtimes().resumed(thread, watch().now());
  }
};

struct TerminateProcessCall : FailsWithFalse {
  DESCRIBES(TerminateProcess);
  static std::vector<Refusal> refusals() { return doneAndRefused(5); }
};

struct WaitForSingleObjectCall : FailsWith<WAIT_FAILED> {
  DESCRIBES(WaitForSingleObject);
  static std::vector<Refusal> refusals() { return codes({6, 5}); }
  static DWORD insteadOf(bool byLauncher, HANDLE handle, DWORD timeout) {
    const auto wait = realCall<WaitForSingleObjectCall>(&WaitForSingleObject);
    if (!byLauncher || timeout != INFINITE) return wait(handle, timeout);
    const DWORD outcome = wait(handle, patienceMs);
    if (outcome == WAIT_TIMEOUT) watch().wrong("waits without end for what does not end");
    return outcome == WAIT_TIMEOUT ? WAIT_OBJECT_0 : outcome;
  }
};

struct GetExitCodeProcessCall : FailsWithFalse {
  DESCRIBES(GetExitCodeProcess);
  static std::vector<Refusal> refusals() { return codes({5, 6}); }
};

struct DuplicateHandleCall : FailsWithFalse {
  DESCRIBES(DuplicateHandle);
  static std::vector<Refusal> refusals() { return codes({1450, 4, 5, 8}); }
  static void done(bool, bool, BOOL result, const auto&, const auto&, const auto&, LPHANDLE target, const auto&...) {
    if (result) watch().acquired(Resource::handle, *target, name);
  }
};

struct InitializeProcThreadAttributeListCall : FailsWithFalse {
  DESCRIBES(InitializeProcThreadAttributeList);
  static std::vector<Refusal> refusals() { return codes({8, 87}); }
  static void done(bool, bool, BOOL result, LPPROC_THREAD_ATTRIBUTE_LIST list, const auto&...) {
    if (result && list != nullptr) watch().acquired(Resource::attributeList, list, name);
  }
};
struct UpdateProcThreadAttributeCall : FailsWithFalse {
  DESCRIBES(UpdateProcThreadAttribute);
  static std::vector<Refusal> refusals() { return codes({1450, 24, 87}); }
};
struct DeleteProcThreadAttributeListCall : Call {
  DESCRIBES(DeleteProcThreadAttributeList);
  static std::vector<Refusal> refusals() { return {}; }
  static void carriedOut(bool byLauncher, LPPROC_THREAD_ATTRIBUTE_LIST list) {
    const DWORD code = GetLastError();
    watch().released(Resource::attributeList, list, name, byLauncher);
    SetLastError(code);
    realCall<DeleteProcThreadAttributeListCall> (&DeleteProcThreadAttributeList)(list);
  }
};

struct CreateJobObjectWCall : FailsWithNull {
  DESCRIBES(CreateJobObjectW);
  static std::vector<Refusal> refusals() { return codes({5, 8, 1450}); }
  static void done(bool, bool, HANDLE result, const auto&...) {
    if (result != nullptr) watch().acquired(Resource::handle, result, name);
  }
};
struct SetInformationJobObjectCall : FailsWithFalse {
  DESCRIBES(SetInformationJobObject);
  static std::vector<Refusal> refusals() { return codes({5, 87}); }
};
struct AssignProcessToJobObjectCall : FailsWithFalse {
  DESCRIBES(AssignProcessToJobObject);
  static std::vector<Refusal> refusals() { return codes({5, 6, 1450}); }
  static BOOL insteadOf(bool, HANDLE job, HANDLE process) {
    if (process == GetCurrentProcess()) {
      // Not really: closing that job would end this very process.
      watch().staysForGood(job);
      return TRUE;
    }
    if (watch().circumstances().jobsRefuseChildren) {
      SetLastError(ERROR_ACCESS_DENIED);
      return FALSE;
    }
    return realCall<AssignProcessToJobObjectCall>(&AssignProcessToJobObject)(job, process);
  }
};
struct QueryInformationJobObjectCall : FailsWithFalse {
  DESCRIBES(QueryInformationJobObject);
  static std::vector<Refusal> refusals() { return codes({5, 24}); }
};
struct TerminateJobObjectCall : FailsWithFalse {
  DESCRIBES(TerminateJobObject);
  static std::vector<Refusal> refusals() { return codes({5, 6}); }
  static BOOL insteadOf(bool, HANDLE job, UINT code) {
    if (watch().circumstances().treeDoesNotEnd) return TRUE;
    const BOOL result = realCall<TerminateJobObjectCall>(&TerminateJobObject)(job, code);
    const DWORD error = GetLastError();
    if (result) Runtimes::jobEnded(job);
    SetLastError(error);
    return result;
  }
};

struct GetEnvironmentStringsWCall : FailsWithNull {
  DESCRIBES(GetEnvironmentStringsW);
  static std::vector<Refusal> refusals() { return codes({8}); }
  static void done(bool, bool, LPWCH result) {
    if (result != nullptr) watch().acquired(Resource::environment, result, name);
  }
};
struct FreeEnvironmentStringsWCall : FailsWithFalse {
  DESCRIBES(FreeEnvironmentStringsW);
  static std::vector<Refusal> refusals() { return doneAndRefused(87); }
  static void done(bool byLauncher, bool, BOOL, LPWCH block) {
    watch().released(Resource::environment, block, name, byLauncher);
  }
};

struct GetModuleFileNameWCall : FailsWithZero {
  DESCRIBES(GetModuleFileNameW);
  static std::vector<Refusal> refusals() { return {{8}, {122, Way::cutOff}}; }
  static DWORD insteadOf(bool, HMODULE, LPWSTR buffer, DWORD) {
    const std::wstring& path = watch().launcherPath();
    return static_cast<DWORD>(path.copy(buffer, path.size()));
  }
  static DWORD failed(const Refusal& refusal, HMODULE, LPWSTR buffer, DWORD size) {
    SetLastError(refusal.code);
    if (refusal.way != Way::cutOff) return 0;
    std::wstring(size, L'x').copy(buffer, size);
    return size;
  }
};

// The clock is never refused; it is ours.
struct SleepCall : Call {
  DESCRIBES(Sleep);
  static std::vector<Refusal> refusals() { return {}; }
  static void carriedOut(bool byLauncher, DWORD ms) {
    if (byLauncher) return watch().sleep(ms);
    realCall<SleepCall> (&Sleep)(ms);
  }
};
struct QueryPerformanceCounterCall : Call {
  DESCRIBES(QueryPerformanceCounter);
  static std::vector<Refusal> refusals() { return {}; }
  static BOOL insteadOf(bool byLauncher, LARGE_INTEGER* counter) {
    if (!byLauncher) return realCall<QueryPerformanceCounterCall>(&QueryPerformanceCounter)(counter);
    counter->QuadPart = static_cast<LONGLONG>(watch().now() * 10'000);
    return TRUE;
  }
};
struct QueryPerformanceFrequencyCall : Call {
  DESCRIBES(QueryPerformanceFrequency);
  static std::vector<Refusal> refusals() { return {}; }
  static BOOL insteadOf(bool byLauncher, LARGE_INTEGER* frequency) {
    if (!byLauncher) return realCall<QueryPerformanceFrequencyCall>(&QueryPerformanceFrequency)(frequency);
    frequency->QuadPart = 10'000'000;
    return TRUE;
  }
};

}  // namespace

void replaceProcessCalls(std::vector<ReplacedCall>& list) {
  replaceCall<CreateProcessWCall>(list, &CreateProcessW);
  replaceCall<CreateThreadCall>(list, &CreateThread);
  replaceCall<ResumeThreadCall>(list, &ResumeThread);
  replaceCall<TerminateProcessCall>(list, &TerminateProcess);
  replaceCall<WaitForSingleObjectCall>(list, &WaitForSingleObject);
  replaceCall<GetExitCodeProcessCall>(list, &GetExitCodeProcess);
  replaceCall<DuplicateHandleCall>(list, &DuplicateHandle);
  replaceCall<InitializeProcThreadAttributeListCall>(list, &InitializeProcThreadAttributeList);
  replaceCall<UpdateProcThreadAttributeCall>(list, &UpdateProcThreadAttribute);
  replaceCall<DeleteProcThreadAttributeListCall>(list, &DeleteProcThreadAttributeList);
  replaceCall<CreateJobObjectWCall>(list, &CreateJobObjectW);
  replaceCall<SetInformationJobObjectCall>(list, &SetInformationJobObject);
  replaceCall<AssignProcessToJobObjectCall>(list, &AssignProcessToJobObject);
  replaceCall<QueryInformationJobObjectCall>(list, &QueryInformationJobObject);
  replaceCall<TerminateJobObjectCall>(list, &TerminateJobObject);
  replaceCall<GetEnvironmentStringsWCall>(list, &GetEnvironmentStringsW);
  replaceCall<FreeEnvironmentStringsWCall>(list, &FreeEnvironmentStringsW);
  replaceCall<GetModuleFileNameWCall>(list, &GetModuleFileNameW);
  replaceCall<SleepCall>(list, &Sleep);
  replaceCall<QueryPerformanceCounterCall>(list, &QueryPerformanceCounter);
  replaceCall<QueryPerformanceFrequencyCall>(list, &QueryPerformanceFrequency);
}

}  // namespace call_faults
