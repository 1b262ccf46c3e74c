#include "tests/os/faults/replaced_calls.h"

#include <numeric>

namespace launcher_stub::tests {
namespace {

template <typename Function>
Function* realCall(const wchar_t* library, const char* name) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(LoadLibraryW(library), name)));
}

std::function<void(DWORD)> fakeSleep;
std::function<BOOL(LARGE_INTEGER*)> fakeQueryPerformanceCounter;

}  // namespace

std::function<BOOL(LPCWSTR, LPSECURITY_ATTRIBUTES)> fakeCreateDirectoryW;
std::function<BOOL(LPCWSTR, LPWSTR)> fakeGetVolumePathNameW;
std::function<BOOL(LPDWORD)> fakeGetVolumeInformationW;
std::function<DWORD(PSID*, PACL*, PSECURITY_DESCRIPTOR*)> fakeGetNamedSecurityInfoW;
std::function<DWORD(PACL*, PSECURITY_DESCRIPTOR*)> fakeGetSecurityInfo;
std::function<DWORD(SECURITY_INFORMATION, PSID, PACL)> fakeSetNamedSecurityInfoW;
std::function<BOOL(PBOOL)> fakeCheckTokenMembership;
std::function<BOOL()> fakeOpenProcessToken;
std::function<BOOL(LPVOID, DWORD, PDWORD)> fakeGetTokenInformation;
std::function<BOOL()> fakeAllocateAndInitializeSid;
std::function<BOOL()> fakeCreateWellKnownSid;
std::function<BOOL()> fakeUpdateProcThreadAttribute;
std::function<BOOL()> fakeCreateProcessW;
std::function<LPWCH()> fakeGetEnvironmentStringsW;
std::function<HANDLE()> fakeCreateJobObjectW;
std::function<BOOL(LPVOID)> fakeSetInformationJobObject;
std::function<BOOL()> fakeAssignProcessToJobObject;
std::function<DWORD()> fakeResumeThread;
std::function<BOOL(UINT)> fakeTerminateJobObject;
std::function<BOOL(LPVOID)> fakeQueryInformationJobObject;
std::function<BOOL()> fakeAllowSetForegroundWindow;
std::function<BOOL()> fakePostMessageW;
std::function<BOOL()> fakeGetMessageW;
std::function<BOOL()> fakeSetProcessShutdownParameters;
std::function<BOOL()> fakeSetDefaultDllDirectories;
std::function<BOOL()> fakeFlushFileBuffers;
std::function<BOOL(LPDWORD)> fakeWriteFile;
std::function<BOOL(HANDLE)> fakeCloseHandle;
std::function<BOOL()> fakeMoveFileExW;
std::vector<UINT> terminatedWith;

// The import pointer of a call, defined here instead of by the import library.
#define IMPORT_POINTER(name)                                     \
  extern "C" decltype(&::name) name##Import asm("__imp_" #name); \
  decltype(&::name) name##Import = &name##Stub

// The real call is looked up without a guarded static variable: the guard itself makes some of these calls.
#define REAL(name, library) \
  if (real##name == nullptr) real##name = realCall<decltype(::name)>(L"" library, #name)

#define STUB(result, library, name, parameters, arguments, fakeArguments) \
  Watch<decltype(::name)> watch##name;                                    \
  static decltype(&::name) real##name = nullptr;                          \
  static result WINAPI name##Stub parameters {                            \
    if (watch##name) watch##name arguments;                               \
    if (fake##name) return fake##name fakeArguments;                      \
    REAL(name, library);                                                  \
    return real##name arguments;                                          \
  }                                                                       \
  IMPORT_POINTER(name)

// A call that is only watched.
#define WATCHED(result, library, name, parameters, arguments) \
  Watch<decltype(::name)> watch##name;                        \
  static decltype(&::name) real##name = nullptr;              \
  static result WINAPI name##Stub parameters {                \
    if (watch##name) watch##name arguments;                   \
    REAL(name, library);                                      \
    return real##name arguments;                              \
  }                                                           \
  IMPORT_POINTER(name)

STUB(BOOL, "kernel32", CreateDirectoryW, (LPCWSTR path, LPSECURITY_ATTRIBUTES attributes), (path, attributes),
     (path, attributes));
STUB(BOOL, "kernel32", GetVolumePathNameW, (LPCWSTR path, LPWSTR volume, DWORD size), (path, volume, size),
     (path, volume));
STUB(BOOL, "kernel32", GetVolumeInformationW,
     (LPCWSTR root, LPWSTR name, DWORD nameSize, LPDWORD serial, LPDWORD length, LPDWORD flags, LPWSTR system,
      DWORD systemSize),
     (root, name, nameSize, serial, length, flags, system, systemSize), (flags));
STUB(DWORD, "advapi32", GetNamedSecurityInfoW,
     (LPCWSTR path, SE_OBJECT_TYPE type, SECURITY_INFORMATION parts, PSID* owner, PSID* group, PACL* list, PACL* audit,
      PSECURITY_DESCRIPTOR* descriptor),
     (path, type, parts, owner, group, list, audit, descriptor), (owner, list, descriptor));
STUB(DWORD, "advapi32", GetSecurityInfo,
     (HANDLE handle, SE_OBJECT_TYPE type, SECURITY_INFORMATION parts, PSID* owner, PSID* group, PACL* list, PACL* audit,
      PSECURITY_DESCRIPTOR* descriptor),
     (handle, type, parts, owner, group, list, audit, descriptor), (list, descriptor));
STUB(DWORD, "advapi32", SetNamedSecurityInfoW,
     (LPWSTR path, SE_OBJECT_TYPE type, SECURITY_INFORMATION parts, PSID owner, PSID group, PACL list, PACL audit),
     (path, type, parts, owner, group, list, audit), (parts, owner, list));
STUB(BOOL, "advapi32", CheckTokenMembership, (HANDLE token, PSID sid, PBOOL isMember), (token, sid, isMember),
     (isMember));
STUB(BOOL, "advapi32", OpenProcessToken, (HANDLE process, DWORD access, PHANDLE token), (process, access, token), ());
STUB(BOOL, "advapi32", GetTokenInformation,
     (HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID information, DWORD size, PDWORD needed),
     (token, kind, information, size, needed), (information, size, needed));
STUB(BOOL, "advapi32", AllocateAndInitializeSid,
     (PSID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD first, DWORD second, DWORD third, DWORD fourth,
      DWORD fifth, DWORD sixth, DWORD seventh, DWORD eighth, PSID* sid),
     (authority, count, first, second, third, fourth, fifth, sixth, seventh, eighth, sid), ());
STUB(BOOL, "advapi32", CreateWellKnownSid, (WELL_KNOWN_SID_TYPE type, PSID domain, PSID sid, DWORD* size),
     (type, domain, sid, size), ());
WATCHED(PVOID, "advapi32", FreeSid, (PSID sid), (sid));
WATCHED(HLOCAL, "kernel32", LocalFree, (HLOCAL memory), (memory));
WATCHED(HANDLE, "kernel32", CreateFileW,
        (LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES attributes, DWORD disposition, DWORD flags,
         HANDLE like),
        (path, access, sharing, attributes, disposition, flags, like));
WATCHED(BOOL, "kernel32", DuplicateHandle,
        (HANDLE from, HANDLE handle, HANDLE to, LPHANDLE duplicate, DWORD access, WINBOOL inherit, DWORD options),
        (from, handle, to, duplicate, access, inherit, options));
STUB(BOOL, "kernel32", UpdateProcThreadAttribute,
     (LPPROC_THREAD_ATTRIBUTE_LIST list, DWORD flags, DWORD_PTR attribute, PVOID value, SIZE_T size, PVOID previous,
      PSIZE_T returned),
     (list, flags, attribute, value, size, previous, returned), ());
STUB(BOOL, "kernel32", CreateProcessW,
     (LPCWSTR path, LPWSTR line, LPSECURITY_ATTRIBUTES process, LPSECURITY_ATTRIBUTES thread, WINBOOL inherit,
      DWORD flags, LPVOID environment, LPCWSTR directory, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION created),
     (path, line, process, thread, inherit, flags, environment, directory, startup, created), ());
STUB(LPWCH, "kernel32", GetEnvironmentStringsW, (), (), ());
STUB(HANDLE, "kernel32", CreateJobObjectW, (LPSECURITY_ATTRIBUTES attributes, LPCWSTR name), (attributes, name), ());
STUB(BOOL, "kernel32", SetInformationJobObject, (HANDLE job, JOBOBJECTINFOCLASS kind, LPVOID information, DWORD size),
     (job, kind, information, size), (information));
STUB(BOOL, "kernel32", AssignProcessToJobObject, (HANDLE job, HANDLE process), (job, process), ());
STUB(DWORD, "kernel32", ResumeThread, (HANDLE thread), (thread), ());
STUB(BOOL, "kernel32", TerminateJobObject, (HANDLE job, UINT code), (job, code), (code));
STUB(BOOL, "kernel32", QueryInformationJobObject,
     (HANDLE job, JOBOBJECTINFOCLASS kind, LPVOID information, DWORD size, LPDWORD returned),
     (job, kind, information, size, returned), (information));
STUB(BOOL, "user32", AllowSetForegroundWindow, (DWORD process), (process), ());
STUB(BOOL, "user32", PostMessageW, (HWND window, UINT message, WPARAM first, LPARAM second),
     (window, message, first, second), ());
STUB(BOOL, "user32", GetMessageW, (LPMSG message, HWND window, UINT lowest, UINT highest),
     (message, window, lowest, highest), ());
STUB(BOOL, "kernel32", SetProcessShutdownParameters, (DWORD level, DWORD flags), (level, flags), ());
STUB(BOOL, "kernel32", SetDefaultDllDirectories, (DWORD flags), (flags), ());
STUB(BOOL, "kernel32", FlushFileBuffers, (HANDLE file), (file), ());
STUB(BOOL, "kernel32", WriteFile, (HANDLE file, LPCVOID bytes, DWORD count, LPDWORD written, LPOVERLAPPED overlapped),
     (file, bytes, count, written, overlapped), (written));
STUB(BOOL, "kernel32", CloseHandle, (HANDLE handle), (handle), (handle));
STUB(BOOL, "kernel32", MoveFileExW, (LPCWSTR source, LPCWSTR target, DWORD flags), (source, target, flags), ());
STUB(void, "kernel32", Sleep, (DWORD duration), (duration), (duration));
STUB(BOOL, "kernel32", QueryPerformanceCounter, (LARGE_INTEGER * counter), (counter), (counter));

static BOOL WINAPI TerminateProcessStub(HANDLE process, UINT code) {
  terminatedWith.push_back(code);
  static auto* const real = realCall<decltype(::TerminateProcess)>(L"kernel32", "TerminateProcess");
  return real(process, code);
}
IMPORT_POINTER(TerminateProcess);

FakeTime::FakeTime() {
  fakeSleep = [this](DWORD duration) { sleeps_.push_back(duration); };
  fakeQueryPerformanceCounter = [this](LARGE_INTEGER* counter) {
    LARGE_INTEGER frequency{};
    QueryPerformanceFrequency(&frequency);
    counter->QuadPart = frequency.QuadPart * 1'000 + static_cast<LONGLONG>(slept()) * frequency.QuadPart / 1'000;
    return TRUE;
  };
}

FakeTime::~FakeTime() {
  fakeSleep = nullptr;
  fakeQueryPerformanceCounter = nullptr;
}

std::uint64_t FakeTime::slept() const { return std::accumulate(sleeps_.begin(), sleeps_.end(), std::uint64_t{0}); }

BOOL reallyCloseHandle(HANDLE handle) { return realCall<decltype(::CloseHandle)>(L"kernel32", "CloseHandle")(handle); }

BOOL reallyCreateDirectory(LPCWSTR path) {
  return realCall<decltype(::CreateDirectoryW)>(L"kernel32", "CreateDirectoryW")(path, nullptr);
}

static void forgetWatches() {
  watchCreateDirectoryW = nullptr;
  watchCreateFileW = nullptr;
  watchGetVolumePathNameW = nullptr;
  watchGetVolumeInformationW = nullptr;
  watchGetNamedSecurityInfoW = nullptr;
  watchGetSecurityInfo = nullptr;
  watchSetNamedSecurityInfoW = nullptr;
  watchCheckTokenMembership = nullptr;
  watchOpenProcessToken = nullptr;
  watchGetTokenInformation = nullptr;
  watchAllocateAndInitializeSid = nullptr;
  watchFreeSid = nullptr;
  watchLocalFree = nullptr;
  watchDuplicateHandle = nullptr;
  watchUpdateProcThreadAttribute = nullptr;
  watchCreateProcessW = nullptr;
  watchCreateJobObjectW = nullptr;
  watchSetInformationJobObject = nullptr;
  watchAssignProcessToJobObject = nullptr;
  watchResumeThread = nullptr;
  watchAllowSetForegroundWindow = nullptr;
  watchPostMessageW = nullptr;
  watchGetMessageW = nullptr;
  watchSetProcessShutdownParameters = nullptr;
  watchSetDefaultDllDirectories = nullptr;
}

void forgetFakes() {
  fakeCreateDirectoryW = nullptr;
  fakeGetVolumePathNameW = nullptr;
  fakeGetVolumeInformationW = nullptr;
  fakeGetNamedSecurityInfoW = nullptr;
  fakeGetSecurityInfo = nullptr;
  fakeSetNamedSecurityInfoW = nullptr;
  fakeCheckTokenMembership = nullptr;
  fakeOpenProcessToken = nullptr;
  fakeGetTokenInformation = nullptr;
  fakeAllocateAndInitializeSid = nullptr;
  fakeCreateWellKnownSid = nullptr;
  fakeUpdateProcThreadAttribute = nullptr;
  fakeCreateProcessW = nullptr;
  fakeGetEnvironmentStringsW = nullptr;
  fakeCreateJobObjectW = nullptr;
  fakeSetInformationJobObject = nullptr;
  fakeAssignProcessToJobObject = nullptr;
  fakeResumeThread = nullptr;
  fakeTerminateJobObject = nullptr;
  fakeQueryInformationJobObject = nullptr;
  fakeAllowSetForegroundWindow = nullptr;
  fakePostMessageW = nullptr;
  fakeGetMessageW = nullptr;
  fakeSetProcessShutdownParameters = nullptr;
  fakeSetDefaultDllDirectories = nullptr;
  fakeFlushFileBuffers = nullptr;
  fakeWriteFile = nullptr;
  fakeCloseHandle = nullptr;
  fakeMoveFileExW = nullptr;
  terminatedWith.clear();
  forgetWatches();
}

}  // namespace launcher_stub::tests
