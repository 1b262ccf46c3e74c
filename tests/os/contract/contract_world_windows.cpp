#include <gtest/gtest.h>
#include <windows.h>

#include <list>
#include <thread>

#include "os/child_environment.h"
#include "os/command_line.h"
#include "os/text.h"
#include "tests/os/contract/contract_world.h"
#include "tests/os/test_child.h"
#include "tests/support/standard_error_capture.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::contract {
namespace {

namespace action = tests::action;

// The argument that makes this program report the environment block which it would give a child.
constexpr wchar_t buildEnvironmentAction[] = L"--build-environment";

constexpr DWORD endWaitMs = 10'000;  // how long an end may take to show

struct KernelHandle {
  explicit KernelHandle(HANDLE opened) : value(opened) {}
  KernelHandle(const KernelHandle&) = delete;
  KernelHandle& operator=(const KernelHandle&) = delete;
  ~KernelHandle() {
    if (isOpen()) CloseHandle(value);
  }
  bool isOpen() const { return value != nullptr && value != INVALID_HANDLE_VALUE; }

  HANDLE value;
};
using SharedHandle = std::shared_ptr<KernelHandle>;

SharedHandle openForReading(const std::wstring& path, Sharing sharing) {
  const DWORD share = (sharing.read ? DWORD{FILE_SHARE_READ} : 0) | (sharing.write ? DWORD{FILE_SHARE_WRITE} : 0) |
                      (sharing.remove ? DWORD{FILE_SHARE_DELETE} : 0);
  const auto held = std::make_shared<KernelHandle>(
      CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  EXPECT_TRUE(held->isOpen()) << "another could not open the file: " << GetLastError();
  return held;
}

bool runs(const SharedHandle& process) {
  return process != nullptr && process->isOpen() && WaitForSingleObject(process->value, 0) == WAIT_TIMEOUT;
}

// A variable of this process as it was; put back at the end.
class SavedVariable {
 public:
  explicit SavedVariable(std::wstring name) : name_(std::move(name)) {
    const DWORD size = GetEnvironmentVariableW(name_.c_str(), nullptr, 0);
    wasSet_ = size > 0;  // also for an empty value: the final zero counts
    value_.resize(size);
    value_.resize(GetEnvironmentVariableW(name_.c_str(), value_.data(), size));
  }
  SavedVariable(const SavedVariable&) = delete;
  SavedVariable& operator=(const SavedVariable&) = delete;
  ~SavedVariable() { SetEnvironmentVariableW(name_.c_str(), wasSet_ ? value_.c_str() : nullptr); }

 private:
  std::wstring name_;
  std::wstring value_;
  bool wasSet_ = false;
};

// This process's environment with `entries` behind it, as one block.
std::wstring blockWith(const std::vector<std::wstring>& entries) {
  std::wstring block;
  wchar_t* own = GetEnvironmentStringsW();
  for (const wchar_t* entry = own; *entry != L'\0'; entry += wcslen(entry) + 1) block.append(entry).push_back(L'\0');
  FreeEnvironmentStringsW(own);
  for (const std::wstring& entry : entries) block.append(entry).push_back(L'\0');
  block.push_back(L'\0');
  return block;
}

std::vector<std::wstring> reportedEntries(const std::wstring& report) {
  std::vector<std::wstring> entries;
  for (const std::string& line : tests::waitForReport(report)) entries.push_back(os::toWide(line));
  return entries;
}

}  // namespace

struct World::Body {
  const tests::TempDirectory directory;
  std::list<SavedVariable> variables;  // put back from the last to the first
  std::vector<SharedHandle> holds;
  std::vector<std::thread> releasers;
  std::unique_ptr<tests::StandardErrorCapture> capture;
  std::wstring report;  // of the program that was asked for last
  int reports = 0;
  SharedHandle child;
  SharedHandle grandchild;

  // The next report lies in a directory of its own, so that the tests find only their own names in theirs.
  const tests::TempDirectory reportDirectory;
  std::wstring nextReport() { return report = reportDirectory / (L"report" + std::to_wstring(++reports)); }

  static SharedHandle observe(const std::string& id) {
    return std::make_shared<KernelHandle>(
        OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE, FALSE, static_cast<DWORD>(std::stoul(id))));
  }
};

World::World() : body_(std::make_unique<Body>()) {}

World::~World() {
  for (std::thread& releaser : body_->releasers) releaser.join();
  for (const SharedHandle& process : {body_->child, body_->grandchild}) {
    if (!runs(process)) continue;
    TerminateProcess(process->value, 99);
    WaitForSingleObject(process->value, endWaitMs);
  }
}

const std::wstring& World::directory() const { return body_->directory.path(); }

void World::writeFile(const std::wstring& path, std::string_view contents) { tests::writeFile(path, contents); }

void World::makeDirectory(const std::wstring& path) { tests::makeDirectory(path); }

void World::makeLink(const std::wstring& link, const std::wstring& directory) {
  tests::makeDirectoryLink(link, directory);
}

void World::removeFile(const std::wstring& path) { EXPECT_TRUE(DeleteFileW(path.c_str())) << GetLastError(); }

void World::makeReadOnly(const std::wstring& path) { tests::setAttributes(path, FILE_ATTRIBUTE_READONLY); }

void World::setLastWriteTime(const std::wstring& path, std::uint64_t hundredNanoseconds) {
  tests::setLastWriteTime(path, hundredNanoseconds);
}

std::optional<std::string> World::readFile(const std::wstring& path) const { return tests::readFile(path); }

bool World::exists(const std::wstring& path) const { return tests::exists(path); }

std::vector<std::wstring> World::namesIn(const std::wstring& path) const { return tests::namesIn(path); }

// Another handle of this process keeps others out exactly as one of another process would.
void World::hold(const std::wstring& path, Sharing sharing) { body_->holds.push_back(openForReading(path, sharing)); }

void World::holdFor(std::uint32_t milliseconds, const std::wstring& path, Sharing sharing) {
  body_->releasers.emplace_back([held = openForReading(path, sharing), milliseconds]() mutable {
    Sleep(milliseconds);
    held.reset();
  });
}

void World::releaseAll() { body_->holds.clear(); }

void World::setVariable(const std::wstring& name, const std::wstring& value) {
  body_->variables.emplace_front(name);
  EXPECT_TRUE(SetEnvironmentVariableW(name.c_str(), value.c_str())) << GetLastError();
}

void World::removeVariable(const std::wstring& name) {
  body_->variables.emplace_front(name);
  SetEnvironmentVariableW(name.c_str(), nullptr);  // fails only where there was none
}

std::vector<std::wstring> World::builtInAProcessWith(const std::vector<std::wstring>& entries) {
  std::wstring block = blockWith(entries);
  std::wstring line = os::buildCommandLine(tests::thisProgram(), {buildEnvironmentAction, body_->nextReport()});
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  const BOOL created = CreateProcessW(tests::thisProgram().c_str(), line.data(), nullptr, nullptr, FALSE,
                                      CREATE_UNICODE_ENVIRONMENT, block.data(), nullptr, &startup, &process);
  EXPECT_TRUE(created) << GetLastError();
  if (!created) return {};
  CloseHandle(process.hThread);
  const KernelHandle builder(process.hProcess);
  EXPECT_EQ(WaitForSingleObject(builder.value, endWaitMs), DWORD{WAIT_OBJECT_0});
  return reportedEntries(body_->report);
}

Program World::exitsWith(std::uint32_t code) {
  return {tests::thisProgram(), tests::actionArguments(action::exitWith, {std::to_wstring(code)})};
}

Program World::runsUntilEnded() { return {tests::thisProgram(), tests::actionArguments(action::sleepLong)}; }

Program World::startsAGrandchild() {
  return {tests::thisProgram(), tests::actionArguments(action::startTree, {body_->nextReport()})};
}

Program World::tellsItsEnvironment() {
  return {tests::thisProgram(), tests::actionArguments(action::dumpVariables, {body_->nextReport()})};
}

void World::awaitTree() {
  const std::vector<std::string> ids = tests::waitForReport(body_->report);
  ASSERT_EQ(ids.size(), 2u);
  body_->child = Body::observe(ids[0]);
  body_->grandchild = Body::observe(ids[1]);
  EXPECT_TRUE(runs(body_->child) && runs(body_->grandchild));
}

bool World::childRuns() const { return runs(body_->child); }

bool World::grandchildRuns() const { return runs(body_->grandchild); }

void World::endTheChildAlone(std::uint32_t code) {
  EXPECT_TRUE(TerminateProcess(body_->child->value, code)) << GetLastError();
  EXPECT_EQ(WaitForSingleObject(body_->child->value, endWaitMs), DWORD{WAIT_OBJECT_0});
}

std::vector<std::wstring> World::toldEnvironment() { return reportedEntries(body_->report); }

std::uint64_t World::now() const { return GetTickCount64(); }

void World::recordLines() {
  body_->capture.reset();  // first: it puts the stream back
  body_->capture = std::make_unique<tests::StandardErrorCapture>();
}

std::vector<std::string> World::lines() const {
  std::vector<std::string> lines;
  std::string text = body_->capture->text();
  for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
    lines.push_back(text.substr(0, end));
    text.erase(0, end + 1);
  }
  if (!text.empty()) ADD_FAILURE() << "the last line has no end: " << text;
  return lines;
}

}  // namespace launcher_stub::contract

// The wide entry point: a child of the tests must get its arguments unharmed by any code page.
extern "C" int wmain(int count, wchar_t** arguments);

extern "C" int wmain(int count, wchar_t** arguments) {
  using namespace launcher_stub;
  if (count == 3 && std::wstring(arguments[1]) == contract::buildEnvironmentAction) {
    std::vector<std::string> lines;
    const std::wstring block = os::buildChildEnvironment(L"i", L"s", L"a", 4);
    for (const std::wstring& entry : os::splitEnvironmentBlock(block.c_str())) lines.push_back(os::toUtf8(entry));
    tests::writeReport(arguments[2], lines);
    return 0;
  }
  if (const std::optional<int> code = tests::runAction(count, arguments)) return *code;
  testing::InitGoogleTest(&count, arguments);
  return RUN_ALL_TESTS();
}
