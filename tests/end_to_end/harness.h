// An installation of its own for each test: an install directory with launcher.exe, a state root, slots with sample
// runtimes, and the documents in them; all in a temporary directory with an odd name. README.md of the sample runtime
// describes the scripts.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/end_to_end/files.h"
#include "tests/end_to_end/process.h"

namespace end_to_end {

// Two delivery ids that differ.
extern const std::string deliveryA;
extern const std::string deliveryB;

// A boot state as JSON text, in the launcher's own form.
struct StateText {
  std::uint64_t generation = 1;
  std::string active = {};
  std::string previous = {};
  std::string candidate = {};
  std::string lastRequestId = {};
  std::uint32_t attemptCount = 0;
  std::vector<std::string> rejected = {};
  bool recovered = false;

  std::string json() const;
};

std::string pendingText(const std::string& candidate, const std::string& requestId, std::uint64_t generation);

// What a sample runtime logged: lines of the form "KEY TEXT".
class RuntimeLog {
 public:
  explicit RuntimeLog(std::vector<std::string> lines) : lines_(std::move(lines)) {}

  // The texts of all lines with this key, in order.
  std::vector<std::string> all(std::string_view key) const;
  // The only one; throws when there is none or more than one.
  std::string one(std::string_view key) const;
  bool has(std::string_view key) const { return !all(key).empty(); }
  std::string text() const;  // for messages

 private:
  std::vector<std::string> lines_;
};

// One start of a sample runtime.
struct RuntimeStart {
  std::string slot;
  std::uint32_t processId = 0;
  std::uint64_t time = 0;  // when it began to run, as of milliseconds()
  std::string nonce;

  friend bool operator==(const RuntimeStart&, const RuntimeStart&) = default;
};

// How to put a runtime into a slot.
struct SlotOptions {
  bool complete = true;
  std::string deliveryId = {};  // empty: no delivery record
};

// How to start the launcher.
struct LauncherStart {
  std::wstring arguments = {};  // as they stand in the command line
  std::vector<Variable> variables = {};
  std::vector<void*> inherited = {};  // more handles for the launcher
  std::uint32_t flags = 0;
};

// A launcher that was started. Killed, with all that it started, when this goes out of scope.
class Launcher {
 public:
  Launcher(const ProcessStart& start, std::wstring errorFile) : process_(start), errorFile_(std::move(errorFile)) {}

  Process& process() { return process_; }
  bool isRunning() const { return process_.isRunning(); }
  std::uint32_t exitCode() const { return process_.exitCode(); }  // waits for the end
  void kill() { process_.kill(); }

  // The lines on standard error so far, without the notice that the state root's access list was reset: every state
  // root that a test prepares belongs to it alone with a plain list, so the notice says nothing there.
  std::vector<std::string> lines() const;
  std::string rawErrors() const { return readFile(errorFile_); }
  bool printsWithin(const std::string& line, std::uint32_t limit = patienceMs) const;

 private:
  Process process_;
  std::wstring errorFile_;
};

enum class RootFrom {
  bootstrap,     // bootstrap-v1.json names it
  localAppData,  // the launcher finds it by LOCALAPPDATA
};

class Installation {
 public:
  explicit Installation(RootFrom rootFrom = RootFrom::bootstrap);
  // With the state root at this place, on a volume of its own maybe. It is emptied first and removed in the end.
  explicit Installation(const std::wstring& stateRoot);
  ~Installation();
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

  const std::wstring& directory() const { return install_; }
  const std::wstring& stateRoot() const { return root_; }
  const std::wstring& scratch() const { return base_; }  // for files of the test
  std::wstring inRoot(const std::wstring& name) const { return root_ + L"\\" + name; }
  std::wstring slotDirectory(const std::string& slot) const;  // also of "seed"

  // The document beside the launcher; the constructor has written a right one.
  void writeBootstrap(std::string_view json);
  void removeBootstrap();
  // A right one with this version, and the members that follow (with a leading comma) besides.
  std::string bootstrapText(int schemaVersion = 1) const;

  // Puts the sample runtime into the seed or into a slot. `script`: see there; it logs into its own directory.
  void installSeed(const std::string& script, const std::string& deliveryId = {});
  void installSlot(const std::string& slot, const std::string& script, const SlotOptions& options = {});
  // A file beside the runtime of a slot: one that its script waits for, or the script of a slot that it will stage.
  void writeBeside(const std::string& slot, const std::wstring& name, std::string_view content = {});

  // Documents in the state root. The root comes into being with the first of them, or by the launcher.
  void writeState(std::string_view json) { writeInRoot(L"boot-v1.json", json); }
  void writePreviousState(std::string_view json) { writeInRoot(L"boot-v1.previous.json", json); }
  void writePending(std::string_view json) { writeInRoot(L"pending-v1.json", json); }
  void writeInRoot(const std::wstring& name, std::string_view content);
  std::string state() const { return readFile(inRoot(L"boot-v1.json")); }
  std::string previousState() const { return readFile(inRoot(L"boot-v1.previous.json")); }
  bool hasPending() const { return isPresent(inRoot(L"pending-v1.json")); }
  std::vector<std::wstring> attempts() const { return listDirectory(inRoot(L"attempts")); }
  // The files in the state root that a replacement has left behind.
  std::vector<std::wstring> temporaryFiles() const;

  Launcher start(const LauncherStart& start = {});

  // What the runtimes did.
  RuntimeLog log(const std::string& slot) const;
  std::vector<RuntimeStart> starts() const;  // all of them, by time
  std::vector<std::string> startedSlots() const;
  // Waits; false when it does not happen in time.
  bool logsWithin(const std::string& slot, std::string_view key, std::uint32_t limit = patienceMs) const;
  bool startsWithin(std::size_t count, std::uint32_t limit = patienceMs) const;

 private:
  Installation(RootFrom rootFrom, const std::wstring& base, const std::wstring& stateRoot);
  ProcessStart prepare(const LauncherStart& start);

  std::wstring base_;
  std::wstring install_;
  std::wstring root_;
  RootFrom rootFrom_;
  int launchers_ = 0;
};

// The programs under test: named by LAUNCHER_UNDER_TEST and SAMPLE_RUNTIME, or beside the test program.
std::wstring launcherUnderTest();
std::wstring sampleRuntime();

}  // namespace end_to_end
