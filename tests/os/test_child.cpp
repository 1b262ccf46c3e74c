#include "tests/os/test_child.h"

#include <windows.h>

#include <stdexcept>

#include "os/command_line.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::tests {

std::wstring thisProgram() {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return path;
}

std::vector<std::wstring> actionArguments(const std::wstring& action, const std::vector<std::wstring>& more) {
  std::vector<std::wstring> arguments = {L"--child", action};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

TestChild::TestChild(const std::wstring& action, const std::vector<std::wstring>& more,
                     const std::wstring& standardErrorFile) {
  SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  if (!standardErrorFile.empty()) {
    startup.hStdError = CreateFileW(standardErrorFile.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                    &inheritable, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  }
  std::wstring line = os::buildCommandLine(thisProgram(), actionArguments(action, more));
  PROCESS_INFORMATION process{};
  const BOOL created = CreateProcessW(thisProgram().c_str(), line.data(), nullptr, nullptr, TRUE, DETACHED_PROCESS,
                                      nullptr, nullptr, &startup, &process);
  if (startup.hStdError != nullptr) CloseHandle(startup.hStdError);
  if (!created) throw std::runtime_error("a child of the tests could not be started");
  CloseHandle(process.hThread);
  process_ = process.hProcess;
  id_ = process.dwProcessId;
}

TestChild::~TestChild() {
  kill();
  CloseHandle(process_);
}

std::optional<std::uint32_t> TestChild::waitForExit(std::uint32_t milliseconds) const {
  DWORD code = 0;
  if (WaitForSingleObject(process_, milliseconds) != WAIT_OBJECT_0) return std::nullopt;
  if (!GetExitCodeProcess(process_, &code)) return std::nullopt;
  return code;
}

void TestChild::kill() const {
  TerminateProcess(process_, 99);
  WaitForSingleObject(process_, 10'000);
}

ObservedProcess::ObservedProcess(std::uint32_t id)
    : process_(OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE, FALSE, id)) {}

ObservedProcess::~ObservedProcess() {
  if (process_ == nullptr) return;
  TerminateProcess(process_, 99);
  CloseHandle(process_);
}

bool ObservedProcess::endsWithin(std::uint32_t milliseconds) const {
  return WaitForSingleObject(process_, milliseconds) == WAIT_OBJECT_0;
}

std::vector<std::string> waitForReport(const std::wstring& path) {
  for (int tries = 0; tries < 200 && !exists(path); ++tries) Sleep(50);
  const std::string text = readFile(path).value_or("");
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

void writeReport(const std::wstring& path, const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  writeFile(path + L".part", text);
  MoveFileW((path + L".part").c_str(), path.c_str());
}

}  // namespace launcher_stub::tests
