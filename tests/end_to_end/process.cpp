#include "tests/end_to_end/process.h"

#include <windows.h>

#include <tlhelp32.h>

#include <algorithm>

namespace end_to_end {
namespace {

Handle openInheritable(const std::wstring& path, DWORD access, DWORD disposition) {
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  HANDLE file = CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inheritable,
                            disposition, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) fail("cannot open " + toUtf8(path));
  return Handle(file);
}

// The one attribute of a start: which handles the child inherits. The system keeps the address of `handles`.
class InheritedHandles {
 public:
  explicit InheritedHandles(std::vector<void*> handles) : handles_(std::move(handles)) {
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    memory_.resize(size);
    if (!InitializeProcThreadAttributeList(list(), 1, 0, &size) ||
        !UpdateProcThreadAttribute(list(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles_.data(),
                                   handles_.size() * sizeof(void*), nullptr, nullptr)) {
      fail("cannot build the handle list");
    }
  }
  ~InheritedHandles() { DeleteProcThreadAttributeList(list()); }
  InheritedHandles(const InheritedHandles&) = delete;
  InheritedHandles& operator=(const InheritedHandles&) = delete;

  LPPROC_THREAD_ATTRIBUTE_LIST list() { return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory_.data()); }

 private:
  std::vector<void*> handles_;
  std::vector<unsigned char> memory_;
};

std::wstring nameOf(std::wstring_view entry) { return std::wstring(entry.substr(0, entry.find(L'=', 1))); }

bool sameName(const std::wstring& a, const std::wstring& b) {
  return CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_EQUAL;
}

}  // namespace

Process::Process(const ProcessStart& start) {
  const Handle nowhere = openInheritable(L"NUL", GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING);
  Handle errors;
  if (!start.errorFile.empty()) errors = openInheritable(start.errorFile, FILE_APPEND_DATA, CREATE_ALWAYS);

  STARTUPINFOEXW startup = {};
  startup.StartupInfo.cb = sizeof startup;
  startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  startup.StartupInfo.hStdInput = nowhere.get();
  startup.StartupInfo.hStdOutput = nowhere.get();
  startup.StartupInfo.hStdError = errors != nullptr ? errors.get() : nowhere.get();
  std::vector<void*> handles = {nowhere.get()};
  if (errors != nullptr) handles.push_back(errors.get());
  handles.insert(handles.end(), start.inherited.begin(), start.inherited.end());
  InheritedHandles inherited(handles);
  startup.lpAttributeList = inherited.list();

  std::wstring commandLine = L"\"" + start.executable + L"\"";
  if (!start.commandLineTail.empty()) commandLine += L" " + start.commandLineTail;
  std::wstring environment = start.environment.value_or(L"");
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(start.executable.c_str(), commandLine.data(), nullptr, nullptr, TRUE,
                      start.flags | EXTENDED_STARTUPINFO_PRESENT | CREATE_UNICODE_ENVIRONMENT,
                      start.environment ? environment.data() : nullptr,
                      start.currentDirectory.empty() ? nullptr : start.currentDirectory.c_str(), &startup.StartupInfo,
                      &process)) {
    fail("cannot start " + toUtf8(start.executable));
  }
  CloseHandle(process.hThread);
  handle_.reset(process.hProcess);
  id_ = process.dwProcessId;
}

Process::~Process() {
  if (handle_ != nullptr && isRunning()) kill();
}

bool Process::isRunning() const { return !endsWithin(0); }

bool Process::endsWithin(std::uint32_t limit) const {
  return WaitForSingleObject(handle_.get(), limit) == WAIT_OBJECT_0;
}

std::uint32_t Process::exitCode() const {
  DWORD code = 0;
  if (!endsWithin()) fail("the process still runs");
  if (!GetExitCodeProcess(handle_.get(), &code)) fail("no exit code");
  return code;
}

void Process::kill() {
  TerminateProcess(handle_.get(), 250);
  (void)endsWithin();  // a process that is ending anyway ends too
}

ProcessWatch::ProcessWatch(std::uint32_t id) : handle_(OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE, FALSE, id)) {
  if (handle_ == nullptr) fail("no process " + std::to_string(id));
}

ProcessWatch::~ProcessWatch() {
  if (handle_ != nullptr && isRunning()) TerminateProcess(handle_.get(), 250);
}

bool ProcessWatch::endsWithin(std::uint32_t limit) const {
  return WaitForSingleObject(handle_.get(), limit) == WAIT_OBJECT_0;
}

std::vector<std::uint32_t> childrenOf(std::uint32_t parent) {
  std::vector<std::uint32_t> children;
  const Handle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL more = Process32FirstW(snapshot.get(), &entry); more; more = Process32NextW(snapshot.get(), &entry)) {
    if (entry.th32ParentProcessID == parent) children.push_back(entry.th32ProcessID);
  }
  return children;
}

std::wstring environmentWith(const std::vector<Variable>& variables) {
  std::wstring block;
  for (const Variable& variable : variables) {
    if (variable.value) block += variable.name + L"=" + *variable.value + L'\0';
  }
  wchar_t* own = GetEnvironmentStringsW();
  for (const wchar_t* entry = own; *entry != L'\0'; entry += wcslen(entry) + 1) {
    const bool replaced = std::any_of(variables.begin(), variables.end(),
                                      [&](const Variable& variable) { return sameName(variable.name, nameOf(entry)); });
    if (!replaced) block.append(entry, wcslen(entry) + 1);
  }
  FreeEnvironmentStringsW(own);
  return block + L'\0';
}

}  // namespace end_to_end
