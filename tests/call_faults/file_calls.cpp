// The calls that read and change files and directories, and the one that closes handles of every kind.
#include <algorithm>

#include "tests/call_faults/replacement.h"

#define DESCRIBES(function) static constexpr std::string_view name = #function

namespace call_faults {
namespace {

// What GetStdHandle gives for the standard error stream. No handle of the system's looks like it.
HANDLE standardError() { return reinterpret_cast<HANDLE>(std::uintptr_t{0x7fff'0001}); }

std::wstring fileOf(HANDLE handle) {
  return handle == standardError() ? L"standard error" : watch().origin(Resource::handle, handle);
}

struct CreateFileWCall : FailsWithInvalidHandle {
  DESCRIBES(CreateFileW);
  static std::vector<Refusal> refusals() { return codes({5, 32, 2, 3, 112, 123, 4}); }
  static std::wstring subject(LPCWSTR path, const auto&...) { return path; }
  static void done(bool byLauncher, bool, HANDLE result, LPCWSTR path, DWORD, DWORD, const auto&, DWORD disposition,
                   const auto&...) {
    if (result == INVALID_HANDLE_VALUE || !byLauncher) return;
    watch().acquired(Resource::handle, result, name, path);
    watch().fileOpened(result, path, disposition);
  }
};

struct CloseHandleCall : FailsWithFalse {
  DESCRIBES(CloseHandle);
  static std::vector<Refusal> refusals() { return doneAndRefused(1117); }
  static std::wstring subject(HANDLE handle) { return fileOf(handle); }
  static void done(bool byLauncher, bool told, BOOL result, HANDLE handle) {
    watch().released(Resource::handle, handle, name, byLauncher);
    watch().fileClosed(handle, told && result);
  }
};

struct ReadFileCall : FailsWithFalse {
  DESCRIBES(ReadFile);
  static std::vector<Refusal> refusals() { return {{1117}, {33}, {0, Way::partly}, {0, Way::nothing}}; }
  static std::wstring subject(HANDLE file, const auto&...) { return fileOf(file); }
  static BOOL failed(const Refusal& refusal, HANDLE file, LPVOID buffer, DWORD size, LPDWORD count,
                     LPOVERLAPPED overlapped) {
    *count = 0;
    if (refusal.way == Way::nothing) return TRUE;
    if (refusal.way == Way::partly) {
      return realCall<ReadFileCall>(&ReadFile)(file, buffer, std::max<DWORD>(1, size / 9000), count, overlapped);
    }
    SetLastError(refusal.code);
    return FALSE;
  }
};

struct WriteFileCall : FailsWithFalse {
  DESCRIBES(WriteFile);
  static std::vector<Refusal> refusals() { return {{112}, {1117}, {0, Way::partly}, {0, Way::nothing}}; }
  static std::wstring subject(HANDLE file, const auto&...) { return fileOf(file); }
  static BOOL insteadOf(bool, HANDLE file, LPCVOID data, DWORD size, LPDWORD written, LPOVERLAPPED overlapped) {
    if (file == standardError()) {
      watch().said({static_cast<const char*>(data), size});
      *written = size;
      return TRUE;
    }
    watch().fileWritten(file, {static_cast<const char*>(data), size});
    return realCall<WriteFileCall>(&WriteFile)(file, data, size, written, overlapped);
  }
  static BOOL failed(const Refusal& refusal, HANDLE file, LPCVOID data, DWORD size, LPDWORD written,
                     LPOVERLAPPED overlapped) {
    *written = 0;
    if (refusal.way == Way::nothing) return TRUE;
    if (refusal.way == Way::partly) {
      return insteadOf(true, file, data, std::max<DWORD>(1, size / 2), written, overlapped);
    }
    SetLastError(refusal.code);
    return FALSE;
  }
};

struct FlushFileBuffersCall : FailsWithFalse {
  DESCRIBES(FlushFileBuffers);
  static std::vector<Refusal> refusals() { return codes({1117, 112, 5}); }
  static std::wstring subject(HANDLE file) { return fileOf(file); }
  static void done(bool, bool, BOOL result, HANDLE file) {
    if (result) watch().fileFlushed(file);
  }
};

struct MoveFileExWCall : FailsWithFalse {
  DESCRIBES(MoveFileExW);
  static std::vector<Refusal> refusals() { return codes({112, 5, 32, 2, 1117}); }
  static std::wstring subject(LPCWSTR, LPCWSTR to, DWORD) { return to; }
  static BOOL insteadOf(bool, LPCWSTR from, LPCWSTR to, DWORD flags) {
    if (watch().renameIsRefused()) {
      SetLastError(ERROR_SHARING_VIOLATION);
      return FALSE;
    }
    const BOOL moved = realCall<MoveFileExWCall>(&MoveFileExW)(from, to, flags);
    const DWORD code = GetLastError();
    if (moved) watch().fileMoved(from, to);
    if (moved) watch().changed();
    SetLastError(code);
    return moved;
  }
};

struct ChangesPath : FailsWithFalse {
  static std::wstring subject(LPCWSTR path, const auto&...) { return path; }
  static void done(bool, bool, BOOL result, const auto&...) {
    if (result) watch().changed();
  }
};

struct DeleteFileWCall : ChangesPath {
  DESCRIBES(DeleteFileW);
  static std::vector<Refusal> refusals() { return codes({5, 32, 2, 3, 1117}); }
};
struct CreateDirectoryWCall : ChangesPath {
  DESCRIBES(CreateDirectoryW);
  static std::vector<Refusal> refusals() { return codes({5, 3, 112, 123, 183, 1307}); }
};
struct RemoveDirectoryWCall : ChangesPath {
  DESCRIBES(RemoveDirectoryW);
  static std::vector<Refusal> refusals() { return codes({32, 5, 145, 2, 267}); }
};
struct SetFileAttributesWCall : ChangesPath {
  DESCRIBES(SetFileAttributesW);
  static std::vector<Refusal> refusals() { return codes({5, 2}); }
};

struct GetFileAttributesWCall : FailsWith<INVALID_FILE_ATTRIBUTES> {
  DESCRIBES(GetFileAttributesW);
  static std::vector<Refusal> refusals() { return codes({5, 2, 3, 32, 53}); }
  static std::wstring subject(LPCWSTR path) { return path; }
};

struct GetFileInformationByHandleCall : FailsWithFalse {
  DESCRIBES(GetFileInformationByHandle);
  static std::vector<Refusal> refusals() { return codes({5, 1117}); }
  static std::wstring subject(HANDLE file, const auto&...) { return fileOf(file); }
};

struct FindFirstFileExWCall : FailsWithInvalidHandle {
  DESCRIBES(FindFirstFileExW);
  static std::vector<Refusal> refusals() { return codes({5, 2, 3, 8}); }
  static std::wstring subject(LPCWSTR path, const auto&...) { return path; }
  static void done(bool, bool, HANDLE result, LPCWSTR path, const auto&...) {
    if (result != INVALID_HANDLE_VALUE) watch().acquired(Resource::search, result, name, path);
  }
};
struct FindNextFileWCall : FailsWithFalse {
  DESCRIBES(FindNextFileW);
  static std::vector<Refusal> refusals() { return codes({5, 18, 59}); }
  static std::wstring subject(HANDLE search, const auto&...) { return watch().origin(Resource::search, search); }
};
struct FindCloseCall : FailsWithFalse {
  DESCRIBES(FindClose);
  static std::vector<Refusal> refusals() { return doneAndRefused(6); }
  static std::wstring subject(HANDLE search) { return watch().origin(Resource::search, search); }
  static void done(bool byLauncher, bool, BOOL, HANDLE search) {
    watch().released(Resource::search, search, name, byLauncher);
  }
};

struct GetStdHandleCall : Call {
  DESCRIBES(GetStdHandle);
  static std::vector<Refusal> refusals() { return {{6}, {0, Way::nothing}}; }
  static HANDLE failed(const Refusal& refusal, DWORD) {
    SetLastError(refusal.code);
    return refusal.way == Way::nothing ? nullptr : INVALID_HANDLE_VALUE;
  }
  static HANDLE insteadOf(bool, DWORD which) {
    return which == STD_ERROR_HANDLE ? standardError() : realCall<GetStdHandleCall>(&GetStdHandle)(which);
  }
};

struct GetVolumePathNameWCall : FailsWithFalse {
  DESCRIBES(GetVolumePathNameW);
  static std::vector<Refusal> refusals() { return codes({5, 3, 206}); }
  static std::wstring subject(LPCWSTR path, const auto&...) { return path; }
};
struct GetVolumeInformationWCall : FailsWithFalse {
  DESCRIBES(GetVolumeInformationW);
  static std::vector<Refusal> refusals() { return codes({5, 21, 1005}); }
  static void done(bool, bool, BOOL result, const auto&, const auto&, const auto&, const auto&, const auto&,
                   LPDWORD flags, const auto&...) {
    if (result && watch().circumstances().volumeKeepsNoLists) *flags &= ~DWORD{FILE_PERSISTENT_ACLS};
  }
};

}  // namespace

void replaceFileCalls(std::vector<ReplacedCall>& list) {
  replaceCall<CreateFileWCall>(list, &CreateFileW);
  replaceCall<CloseHandleCall>(list, &CloseHandle);
  replaceCall<ReadFileCall>(list, &ReadFile);
  replaceCall<WriteFileCall>(list, &WriteFile);
  replaceCall<FlushFileBuffersCall>(list, &FlushFileBuffers);
  replaceCall<MoveFileExWCall>(list, &MoveFileExW);
  replaceCall<DeleteFileWCall>(list, &DeleteFileW);
  replaceCall<CreateDirectoryWCall>(list, &CreateDirectoryW);
  replaceCall<RemoveDirectoryWCall>(list, &RemoveDirectoryW);
  replaceCall<SetFileAttributesWCall>(list, &SetFileAttributesW);
  replaceCall<GetFileAttributesWCall>(list, &GetFileAttributesW);
  replaceCall<GetFileInformationByHandleCall>(list, &GetFileInformationByHandle);
  replaceCall<FindFirstFileExWCall>(list, &FindFirstFileExW);
  replaceCall<FindNextFileWCall>(list, &FindNextFileW);
  replaceCall<FindCloseCall>(list, &FindClose);
  replaceCall<GetStdHandleCall>(list, &GetStdHandle);
  replaceCall<GetVolumePathNameWCall>(list, &GetVolumePathNameW);
  replaceCall<GetVolumeInformationWCall>(list, &GetVolumeInformationW);
}

}  // namespace call_faults
