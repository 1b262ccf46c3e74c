#include "conformance/platform_processes.h"

#include <windows.h>

#include <tlhelp32.h>
#include <winternl.h>

#include <algorithm>
#include <array>
#include <utility>

namespace conformance {
namespace {

constexpr std::size_t mostProcesses = 1024;  // of one tree that are noticed

bool runsUnderWine() {
  static const bool wine = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
  return wine;
}

Handle openForChild(const std::wstring& path, DWORD disposition) {
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  return adoptHandle(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                 FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inheritable, disposition, 0,
                                 nullptr));
}

Handle createJob() {
  Handle job(CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  if (job != nullptr &&
      !SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits)) {
    job.reset();
  }
  return job;
}

std::vector<std::uint32_t> processIdsIn(void* job) {
  alignas(JOBOBJECT_BASIC_PROCESS_ID_LIST)
      std::array<unsigned char, sizeof(JOBOBJECT_BASIC_PROCESS_ID_LIST) + mostProcesses * sizeof(ULONG_PTR)>
          buffer = {};
  auto* list = reinterpret_cast<JOBOBJECT_BASIC_PROCESS_ID_LIST*>(buffer.data());
  std::vector<std::uint32_t> ids;
  if (!QueryInformationJobObject(job, JobObjectBasicProcessIdList, list, static_cast<DWORD>(buffer.size()), nullptr)) {
    return ids;
  }
  for (DWORD index = 0; index < list->NumberOfProcessIdsInList; ++index) {
    ids.push_back(static_cast<std::uint32_t>(list->ProcessIdList[index]));
  }
  return ids;
}

std::uint32_t parentOf(std::uint32_t id) {
  const Handle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL more = Process32FirstW(snapshot.get(), &entry); more; more = Process32NextW(snapshot.get(), &entry)) {
    if (entry.th32ProcessID == id) return entry.th32ParentProcessID;
  }
  return 0;
}

std::wstring imageOf(void* process) {
  std::wstring path(32768, L'\0');
  auto size = static_cast<DWORD>(path.size());
  if (!QueryFullProcessImageNameW(process, 0, path.data(), &size)) size = 0;
  path.resize(size);
  return path;
}

bool isBelow(const std::wstring& path, std::wstring directory) {
  directory += L'\\';
  const int length = static_cast<int>(directory.size());
  return path.size() > directory.size() &&
         CompareStringOrdinal(path.c_str(), length, directory.c_str(), length, TRUE) == CSTR_EQUAL;
}

// Console hosts come with every console program. Under Wine, services and the desktop are children of whichever program
// needs them first.
bool isOfTheSystem(const std::wstring& image) {
  wchar_t windows[MAX_PATH + 1] = {};
  GetWindowsDirectoryW(windows, MAX_PATH + 1);
  if (runsUnderWine()) return isBelow(image, windows);
  const std::wstring host = L"\\conhost.exe";
  return image.size() > host.size() && isBelow(image, windows) &&
         CompareStringOrdinal(image.c_str() + image.size() - host.size(), -1, host.c_str(), -1, TRUE) == CSTR_EQUAL;
}

// A process to watch, with as many rights as can be had.
Handle openProcess(std::uint32_t id) {
  constexpr DWORD least = PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE | PROCESS_TERMINATE;
  constexpr DWORD most =
      least | PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | PROCESS_DUP_HANDLE | PROCESS_CREATE_PROCESS;
  Handle process(OpenProcess(most, FALSE, id));
  return process != nullptr ? std::move(process) : Handle(OpenProcess(least, FALSE, id));
}

// --- Looking into another process ---

// Where these structures keep what is needed, in 64-bit processes; every process of a 64-bit system has them.
constexpr std::uintptr_t parametersInBlock = 0x20;        // of the process environment block
constexpr std::uintptr_t environmentInParameters = 0x80;  // of the process parameters
constexpr std::uintptr_t environmentSizeInParameters = 0x3F0;
constexpr std::uintptr_t largestEnvironment = std::uintptr_t{1} << 24;

template <typename Value>
bool readMemory(void* process, std::uintptr_t address, Value* values, std::size_t count = 1) {
  SIZE_T read = 0;
  const void* from = reinterpret_cast<const void*>(address);  // NOLINT(performance-no-int-to-ptr): in another process
  return ReadProcessMemory(process, from, values, count * sizeof(Value), &read) && read == count * sizeof(Value);
}

std::wstring environmentBlockOf(void* process) {
  PROCESS_BASIC_INFORMATION basic = {};
  std::uintptr_t parameters = 0;
  std::uintptr_t environment = 0;
  std::uintptr_t size = 0;
  if (NtQueryInformationProcess(process, ProcessBasicInformation, &basic, sizeof basic, nullptr) < 0 ||
      !readMemory(process, reinterpret_cast<std::uintptr_t>(basic.PebBaseAddress) + parametersInBlock, &parameters) ||
      !readMemory(process, parameters + environmentInParameters, &environment) ||
      !readMemory(process, parameters + environmentSizeInParameters, &size) || size > largestEnvironment) {
    return {};
  }
  std::wstring block(size / sizeof(wchar_t), L'\0');
  return readMemory(process, environment, block.data(), block.size()) ? block : std::wstring();
}

std::wstring finalPath(void* file) {
  std::wstring path(32768, L'\0');
  path.resize(GetFinalPathNameByHandleW(file, path.data(), static_cast<DWORD>(path.size()), 0));
  return path;
}

// Whether the two are the same file, by volume and number. Other kinds of objects have neither.
bool isSameFile(void* file, const std::wstring& path) {
  if (GetFileType(file) != FILE_TYPE_DISK) return false;
  // The other one cannot be opened: it is the launcher's lock. Its directory can, and the path tells the rest.
  const std::wstring held = finalPath(file);
  const std::wstring directory = path.substr(0, path.find_last_of(L'\\'));
  const Handle opened(CreateFileW(directory.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  const std::wstring wanted = finalPath(opened.get()) + path.substr(directory.size());
  return CompareStringOrdinal(held.c_str(), -1, wanted.c_str(), -1, TRUE) == CSTR_EQUAL;
}

HeldHandle whatIsHeld(void* process, std::uintptr_t handle, const std::wstring& file) {
  HANDLE copy = nullptr;
  auto* const value = reinterpret_cast<HANDLE>(handle);  // NOLINT(performance-no-int-to-ptr): a handle's value
  if (!DuplicateHandle(process, value, GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
    return GetLastError() == ERROR_INVALID_HANDLE ? HeldHandle::nothing : HeldHandle::unknown;
  }
  return isSameFile(Handle(copy).get(), file) ? HeldHandle::file : HeldHandle::nothing;
}

// A process that is a child of `parent` in every respect and never runs; null where the system refuses. Its exit code
// will be 0.
Handle startSuspendedChildOf(void* parent) {
  SIZE_T size = 0;
  InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
  std::vector<unsigned char> memory(size);
  auto* const list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory.data());
  if (!InitializeProcThreadAttributeList(list, 1, 0, &size)) return nullptr;
  STARTUPINFOEXW startup = {};
  startup.StartupInfo.cb = sizeof startup;
  startup.lpAttributeList = list;
  PROCESS_INFORMATION created = {};
  const std::wstring self = imageOf(GetCurrentProcess());
  const bool started =
      UpdateProcThreadAttribute(list, 0, PROC_THREAD_ATTRIBUTE_PARENT_PROCESS, &parent, sizeof parent, nullptr,
                                nullptr) &&
      CreateProcessW(self.c_str(), nullptr, nullptr, nullptr, TRUE, CREATE_SUSPENDED | EXTENDED_STARTUPINFO_PRESENT,
                     nullptr, nullptr, &startup.StartupInfo, &created);
  DeleteProcThreadAttributeList(list);
  if (!started) return nullptr;
  CloseHandle(created.hThread);
  return Handle(created.hProcess);
}

}  // namespace

WatchedProcess::WatchedProcess(Handle handle, std::uint32_t id, std::uint32_t parent, std::wstring image)
    : handle_(std::move(handle)), id_(id), parent_(parent), image_(std::move(image)) {}

bool WatchedProcess::hasEnded() const { return WaitForSingleObject(handle_.get(), 0) == WAIT_OBJECT_0; }

std::optional<std::uint32_t> WatchedProcess::exitCode() const {
  DWORD code = 0;
  if (!hasEnded() || !GetExitCodeProcess(handle_.get(), &code)) return std::nullopt;
  return code;
}

std::uint64_t WatchedProcess::endTime() const {
  FILETIME creation = {};
  FILETIME end = {};
  FILETIME kernel = {};
  FILETIME user = {};
  if (!hasEnded() || !GetProcessTimes(handle_.get(), &creation, &end, &kernel, &user)) return 0;
  return (std::uint64_t{end.dwHighDateTime} << 32) | end.dwLowDateTime;
}

void WatchedProcess::terminate(std::uint32_t code) const { TerminateProcess(handle_.get(), code); }

bool ProcessTree::start(const std::wstring& executable, const std::wstring& arguments, const std::wstring& directory,
                        const std::wstring& errorFile, std::string& problem) {
  job_ = createJob();
  const Handle nowhere = openForChild(L"NUL", OPEN_EXISTING);
  const Handle errors = openForChild(errorFile, CREATE_ALWAYS);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = nowhere.get();
  startup.hStdOutput = nowhere.get();
  startup.hStdError = errors.get();
  std::wstring commandLine = L"\"" + executable + L"\"";
  if (!arguments.empty()) commandLine += L" " + arguments;
  PROCESS_INFORMATION created = {};
  // Suspended until it is in the job, so that nothing can escape from there.
  if (!CreateProcessW(executable.c_str(), commandLine.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                      directory.c_str(), &startup, &created)) {
    problem = "cannot start " + toUtf8(executable) + ": Win32 error " + std::to_string(GetLastError());
    return false;
  }
  const Handle thread(created.hThread);
  processes_.clear();
  ofTheSystem_.clear();
  processes_.emplace_back(Handle(created.hProcess), created.dwProcessId, GetCurrentProcessId(), executable);
  if (job_ == nullptr || !AssignProcessToJobObject(job_.get(), created.hProcess)) {
    problem = "cannot put the launcher into a job: Win32 error " + std::to_string(GetLastError());
    processes_.front().terminate(1);
    return false;
  }
  ResumeThread(thread.get());
  return true;
}

void ProcessTree::look() {
  for (const std::uint32_t id : processIdsIn(job_.get())) {
    if (isKnown(id)) continue;
    Handle process = openProcess(id);
    if (process == nullptr) continue;  // it has ended meanwhile
    std::wstring image = imageOf(process.get());
    const std::uint32_t parent = parentOf(id);
    if (image.empty() || parent == 0) continue;  // it is just being created or just ending: the next look tells
    if (isOfTheSystem(image)) {
      ofTheSystem_.push_back(id);
    } else {
      processes_.emplace_back(std::move(process), id, parent, std::move(image));
    }
  }
}

bool ProcessTree::isKnown(std::uint32_t id) const {
  return std::find(ofTheSystem_.begin(), ofTheSystem_.end(), id) != ofTheSystem_.end() ||
         std::any_of(processes_.begin(), processes_.end(),
                     [&](const WatchedProcess& process) { return process.id() == id; });
}

std::size_t ProcessTree::count() const { return processIdsIn(job_.get()).size(); }

void ProcessTree::end() {
  if (job_ == nullptr) return;
  TerminateJobObject(job_.get(), 1);
  for (const WatchedProcess& process : processes_) WaitForSingleObject(process.handle(), 5000);
}

std::uint32_t thisProcessId() { return GetCurrentProcessId(); }

bool runCommand(const std::wstring& commandLine, std::uint32_t limit) {
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION created = {};
  std::wstring line = commandLine;
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &created)) {
    return false;
  }
  const Handle thread(created.hThread);
  const Handle process(created.hProcess);
  if (WaitForSingleObject(process.get(), limit) == WAIT_OBJECT_0) return true;
  TerminateProcess(process.get(), 1);
  return false;
}

int closeWindows(std::uint32_t processId) {
  struct Search {
    std::uint32_t processId;
    int count;
  } search = {processId, 0};
  const auto close = [](HWND window, LPARAM parameter) -> BOOL {
    auto* found = reinterpret_cast<Search*>(parameter);  // NOLINT(performance-no-int-to-ptr): that is how it comes back
    DWORD owner = 0;
    GetWindowThreadProcessId(window, &owner);
    if (owner == found->processId && IsWindowVisible(window) && PostMessageW(window, WM_CLOSE, 0, 0)) ++found->count;
    return TRUE;
  };
  EnumWindows(close, reinterpret_cast<LPARAM>(&search));
  return search.count;
}

std::optional<std::wstring> variableOf(const WatchedProcess& process, const std::wstring& name) {
  const std::wstring block = environmentBlockOf(process.handle());
  const std::wstring start = name + L"=";
  for (std::size_t at = 0; at < block.size() && block[at] != L'\0';) {
    const std::wstring entry = block.c_str() + at;
    if (entry.starts_with(start)) return entry.substr(start.size());
    at += entry.size() + 1;
  }
  return std::nullopt;
}

HeldHandle lookAtHandle(const WatchedProcess& process, std::uintptr_t handle, const std::wstring& file) {
  return whatIsHeld(process.handle(), handle, file);
}

HeldHandle lookAtChildOf(const WatchedProcess& process, std::uintptr_t handle, const std::wstring& file) {
  const Handle child = startSuspendedChildOf(process.handle());
  if (child == nullptr) return HeldHandle::unknown;
  const HeldHandle held = whatIsHeld(child.get(), handle, file);
  TerminateProcess(child.get(), 0);
  WaitForSingleObject(child.get(), 5000);
  return held;
}

}  // namespace conformance
