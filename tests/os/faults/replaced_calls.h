// System calls that tests can replace. The product calls each of these through the program's import pointer; this
// program defines the pointers itself, so that what a test puts into `fake...` runs in the call's place. Without a
// fake the real call is made. For failures and facts that cannot be brought about on a healthy machine.
#pragma once

#include <windows.h>

#include <aclapi.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace launcher_stub::tests {

// What is told of each call before it is made, with all its arguments, whether a fake takes its place or not.
template <typename Function>
struct WatchOf;
template <typename Result, typename... Arguments>
struct WatchOf<Result WINAPI(Arguments...)> {
  using Type = std::function<void(Arguments...)>;
};
template <typename Function>
using Watch = typename WatchOf<Function>::Type;

extern Watch<decltype(::CreateDirectoryW)> watchCreateDirectoryW;
extern Watch<decltype(::CreateFileW)> watchCreateFileW;
extern Watch<decltype(::GetVolumePathNameW)> watchGetVolumePathNameW;
extern Watch<decltype(::GetVolumeInformationW)> watchGetVolumeInformationW;
extern Watch<decltype(::GetNamedSecurityInfoW)> watchGetNamedSecurityInfoW;
extern Watch<decltype(::GetSecurityInfo)> watchGetSecurityInfo;
extern Watch<decltype(::SetNamedSecurityInfoW)> watchSetNamedSecurityInfoW;
extern Watch<decltype(::CheckTokenMembership)> watchCheckTokenMembership;
extern Watch<decltype(::OpenProcessToken)> watchOpenProcessToken;
extern Watch<decltype(::GetTokenInformation)> watchGetTokenInformation;
extern Watch<decltype(::AllocateAndInitializeSid)> watchAllocateAndInitializeSid;
extern Watch<decltype(::FreeSid)> watchFreeSid;
extern Watch<decltype(::LocalFree)> watchLocalFree;
extern Watch<decltype(::DuplicateHandle)> watchDuplicateHandle;
extern Watch<decltype(::UpdateProcThreadAttribute)> watchUpdateProcThreadAttribute;
extern Watch<decltype(::CreateProcessW)> watchCreateProcessW;
extern Watch<decltype(::CreateJobObjectW)> watchCreateJobObjectW;
extern Watch<decltype(::SetInformationJobObject)> watchSetInformationJobObject;
extern Watch<decltype(::AssignProcessToJobObject)> watchAssignProcessToJobObject;
extern Watch<decltype(::ResumeThread)> watchResumeThread;
extern Watch<decltype(::AllowSetForegroundWindow)> watchAllowSetForegroundWindow;
extern Watch<decltype(::PostMessageW)> watchPostMessageW;
extern Watch<decltype(::GetMessageW)> watchGetMessageW;
extern Watch<decltype(::SetProcessShutdownParameters)> watchSetProcessShutdownParameters;
extern Watch<decltype(::SetDefaultDllDirectories)> watchSetDefaultDllDirectories;

extern std::function<BOOL(LPCWSTR, LPSECURITY_ATTRIBUTES)> fakeCreateDirectoryW;
extern std::function<BOOL(LPCWSTR path, LPWSTR volume)> fakeGetVolumePathNameW;
extern std::function<BOOL(LPDWORD flags)> fakeGetVolumeInformationW;
extern std::function<DWORD(PSID* owner, PACL* list, PSECURITY_DESCRIPTOR*)> fakeGetNamedSecurityInfoW;
extern std::function<DWORD(PACL* list, PSECURITY_DESCRIPTOR*)> fakeGetSecurityInfo;
extern std::function<DWORD(SECURITY_INFORMATION, PSID owner, PACL list)> fakeSetNamedSecurityInfoW;
extern std::function<BOOL(PBOOL isMember)> fakeCheckTokenMembership;
extern std::function<BOOL()> fakeOpenProcessToken;
extern std::function<BOOL(LPVOID information, DWORD size, PDWORD needed)> fakeGetTokenInformation;
extern std::function<BOOL()> fakeAllocateAndInitializeSid;
extern std::function<BOOL()> fakeCreateWellKnownSid;

extern std::function<BOOL()> fakeUpdateProcThreadAttribute;
extern std::function<BOOL()> fakeCreateProcessW;
extern std::function<LPWCH()> fakeGetEnvironmentStringsW;
extern std::function<HANDLE()> fakeCreateJobObjectW;
extern std::function<BOOL(LPVOID information)> fakeSetInformationJobObject;
extern std::function<BOOL()> fakeAssignProcessToJobObject;
extern std::function<DWORD()> fakeResumeThread;
extern std::function<BOOL(UINT code)> fakeTerminateJobObject;
extern std::function<BOOL(LPVOID information)> fakeQueryInformationJobObject;

extern std::function<BOOL()> fakeAllowSetForegroundWindow;
extern std::function<BOOL()> fakePostMessageW;
extern std::function<BOOL()> fakeGetMessageW;
extern std::function<BOOL()> fakeSetProcessShutdownParameters;
extern std::function<BOOL()> fakeSetDefaultDllDirectories;

extern std::function<BOOL()> fakeFlushFileBuffers;
extern std::function<BOOL(LPDWORD written)> fakeWriteFile;
extern std::function<BOOL(HANDLE)> fakeCloseHandle;
extern std::function<BOOL()> fakeMoveFileExW;

// The exit codes handed to TerminateProcess since the last test; the real call is made.
extern std::vector<UINT> terminatedWith;

// While it lives, time stands still but for what the product sleeps.
class FakeTime {
 public:
  FakeTime();
  ~FakeTime();
  FakeTime(const FakeTime&) = delete;
  FakeTime& operator=(const FakeTime&) = delete;

  const std::vector<DWORD>& sleeps() const { return sleeps_; }  // ms, in order
  std::uint64_t slept() const;                                  // ms in all

 private:
  std::vector<DWORD> sleeps_;
};

void forgetFakes();  // after each test

// The real calls, for fakes that do the work and then say otherwise.
BOOL reallyCloseHandle(HANDLE handle);
BOOL reallyCreateDirectory(LPCWSTR path);

}  // namespace launcher_stub::tests
