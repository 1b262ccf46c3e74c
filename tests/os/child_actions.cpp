#include <windows.h>

#include <exception>
#include <map>
#include <stdexcept>

#include "launcher/process_end.h"
#include "os/child_process.h"
#include "os/command_line.h"
#include "os/error_box.h"
#include "os/lock_file.h"
#include "os/text.h"
#include "os/this_process.h"
#include "tests/os/test_child.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::tests {
namespace {

using Arguments = std::vector<std::wstring>;  // those behind the action's name

int sleepUntilEnded() {
  Sleep(120'000);  // in case nobody does
  return 98;
}

int holdLockFile(const Arguments& arguments) {
  os::LockFile lock;
  if (!os::openLockFile(lock, arguments.at(0), os::LockWait::none)) return 2;
  writeReport(arguments.at(1), {"held"});
  return sleepUntilEnded();
}

int openLockOnce(const Arguments& arguments) {
  os::LockFile lock;
  if (os::openLockFile(lock, arguments.at(0), os::LockWait::none)) return 0;
  return lock.busy ? 1 : 2;
}

int reportArguments(const Arguments& arguments) {
  std::vector<std::string> lines;
  for (const std::wstring& argument : os::readCommandLineArguments()) lines.push_back(os::toUtf8(argument));
  writeReport(arguments.at(0), lines);
  return 0;
}

int reportVariables(const Arguments& arguments) {
  std::vector<std::string> lines;
  wchar_t* block = GetEnvironmentStringsW();
  for (const wchar_t* entry = block; *entry != L'\0'; entry += wcslen(entry) + 1) lines.push_back(os::toUtf8(entry));
  FreeEnvironmentStringsW(block);
  writeReport(arguments.at(0), lines);
  return 0;
}

int reportOpenFiles(const Arguments& arguments) {
  std::vector<std::string> lines;
  std::wstring path(32768, L'\0');
  for (std::uintptr_t value = 4; value < 0x4000; value += 4) {
    HANDLE handle = reinterpret_cast<HANDLE>(value);
    if (GetFileType(handle) != FILE_TYPE_DISK) continue;
    const DWORD length = GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()), 0);
    lines.push_back(std::to_string(value) + " " + os::toUtf8(path.substr(0, length)));
  }
  writeReport(arguments.at(0), lines);
  return 0;
}

// A plain start, without a job of its own and without any of the code under test but the quoting.
PROCESS_INFORMATION startSleeper(DWORD flags) {
  std::wstring line = os::buildCommandLine(thisProgram(), actionArguments(action::sleepLong));
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  CreateProcessW(thisProgram().c_str(), line.data(), nullptr, nullptr, FALSE, flags, nullptr, nullptr, &startup,
                 &process);
  return process;
}

int startTreeAndSleep(const Arguments& arguments) {
  const PROCESS_INFORMATION grandchild = startSleeper(0);
  writeReport(arguments.at(0), {std::to_string(GetCurrentProcessId()), std::to_string(grandchild.dwProcessId)});
  return sleepUntilEnded();
}

int launchTreeAndSleep(const Arguments& arguments) {
  os::LockFile lease;
  if (!os::openLockFile(lease, arguments.at(0), os::LockWait::none)) return 2;
  os::ChildProcess child;
  const std::wstring program = thisProgram();
  const std::vector<std::wstring> programArguments = actionArguments(action::startTree, {arguments.at(1)});
  const std::wstring install = L"i";
  const std::wstring slot = L"s";
  const std::wstring attempt = L"a";
  const os::ChildStart start{program, programArguments, install, slot, attempt, lease.handle.get()};
  if (!os::startChild(child, start)) return 3;
  return sleepUntilEnded();
}

int sleepInTheGap(const Arguments& arguments, bool isContained) {
  if (isContained) os::containThisProcess();
  writeReport(arguments.at(0), {std::to_string(startSleeper(CREATE_SUSPENDED).dwProcessId)});
  return sleepUntilEnded();
}

int showAllErrors(const Arguments& arguments) {
  for (std::size_t index = 1; index < arguments.size(); ++index) os::showError(os::toUtf8(arguments[index]));
  return endRun(std::stoi(arguments.at(0)));
}

struct MarkerAtTheEnd {
  std::wstring path;
  ~MarkerAtTheEnd() { writeReport(path, {"unwound"}); }
};

int throwOut(const Arguments& arguments) {
  std::set_terminate([] { os::endThisProcessQuietly(); });
  return runToEnd([&]() -> int {
    const MarkerAtTheEnd marker{arguments.at(0)};
    throw std::runtime_error("nobody catches this");
  });
}

const std::map<std::wstring, int (*)(const Arguments&)> actions = {
    {action::exitWith, [](const Arguments& arguments) { return static_cast<int>(std::stoul(arguments.at(0))); }},
    {action::sleepLong, [](const Arguments&) { return sleepUntilEnded(); }},
    {action::holdLock, holdLockFile},
    {action::openLock, openLockOnce},
    {action::dumpArguments, reportArguments},
    {action::dumpVariables, reportVariables},
    {action::dumpFiles, reportOpenFiles},
    {action::startTree, startTreeAndSleep},
    {action::launchTree, launchTreeAndSleep},
    {action::contained, [](const Arguments& arguments) { return sleepInTheGap(arguments, true); }},
    {action::uncontained, [](const Arguments& arguments) { return sleepInTheGap(arguments, false); }},
    {action::showErrors, showAllErrors},
    {action::throwUp, throwOut},
    {action::endQuietly, [](const Arguments&) -> int { os::endThisProcessQuietly(); }},
};

}  // namespace

std::optional<int> runAction(int count, wchar_t** arguments) {
  if (count < 3 || std::wstring(arguments[1]) != L"--child") return std::nullopt;
  const auto found = actions.find(arguments[2]);
  if (found == actions.end()) return 97;
  return found->second(Arguments(arguments + 3, arguments + count));
}

}  // namespace launcher_stub::tests
