// Copies of this test program that do one thing each, in a process of their own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace launcher_stub::tests {

// What a child does, by the name in its first argument. Each takes the arguments named behind it.
namespace action {
constexpr wchar_t exitWith[] = L"exit";            // CODE
constexpr wchar_t sleepLong[] = L"sleep";          // until it is ended
constexpr wchar_t holdLock[] = L"hold-lock";       // PATH READY: takes the lock file, writes READY, sleeps
constexpr wchar_t openLock[] = L"open-lock";       // PATH: exits with 0 when it took the lock, 1 when busy, 2 otherwise
constexpr wchar_t dumpArguments[] = L"arguments";  // REPORT ...: one line for each argument read, in UTF-8
constexpr wchar_t dumpVariables[] = L"variables";  // REPORT: one line for each entry of its environment, in UTF-8
constexpr wchar_t dumpFiles[] = L"files";          // REPORT: "value path" for each open handle of a disk file
constexpr wchar_t startTree[] = L"tree";           // REPORT: starts a sleeper, reports both process ids, sleeps
constexpr wchar_t launchTree[] = L"launch";        // LEASE REPORT: startChild of a `tree`, then sleeps
constexpr wchar_t contained[] = L"contained";      // REPORT: contains itself, creates a suspended child, sleeps
constexpr wchar_t uncontained[] = L"uncontained";  // REPORT: the same without containing itself
constexpr wchar_t showErrors[] = L"errors";        // RESULT MESSAGE...: showError for each, then ends like the launcher
constexpr wchar_t throwUp[] = L"throw";            // MARKER: an exception leaves the run; unwinding writes MARKER
constexpr wchar_t endQuietly[] = L"end-quietly";
}  // namespace action

// The process's exit code, where the command line asks for a child's action; none for a run of the tests.
std::optional<int> runAction(int count, wchar_t** arguments);

std::wstring thisProgram();
// The arguments that make this program do an action.
std::vector<std::wstring> actionArguments(const std::wstring& action, const std::vector<std::wstring>& more = {});

// A running child. Ended with the test.
class TestChild {
 public:
  // `standardErrorFile`: receives what the child writes there; empty: the child has no such stream.
  TestChild(const std::wstring& action, const std::vector<std::wstring>& more,
            const std::wstring& standardErrorFile = {});
  TestChild(const TestChild&) = delete;
  TestChild& operator=(const TestChild&) = delete;
  ~TestChild();

  std::uint32_t id() const { return id_; }
  // The exit code, or none when the child still runs after `milliseconds`.
  std::optional<std::uint32_t> waitForExit(std::uint32_t milliseconds) const;
  void kill() const;

 private:
  void* process_ = nullptr;
  std::uint32_t id_ = 0;
};

// A process known by its id only, for instance a child's child. The handle keeps the id from being used again.
class ObservedProcess {
 public:
  explicit ObservedProcess(std::uint32_t id);
  ObservedProcess(const ObservedProcess&) = delete;
  ObservedProcess& operator=(const ObservedProcess&) = delete;
  ~ObservedProcess();  // ends it, should it still run

  bool isOpen() const { return process_ != nullptr; }
  bool endsWithin(std::uint32_t milliseconds) const;

 private:
  void* process_;
};

// Waits until a report is there and returns its lines; empty after 10 s in vain.
std::vector<std::string> waitForReport(const std::wstring& path);
// Writes a report that waitForReport finds whole or not at all.
void writeReport(const std::wstring& path, const std::vector<std::string>& lines);

}  // namespace launcher_stub::tests
