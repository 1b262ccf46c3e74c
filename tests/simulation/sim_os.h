// A simulated Windows machine under the launcher: one implementation of everything that os/*.h declares, in memory and
// in virtual time. Code under test is linked with it instead of the real platform layer and does not know.
//
// The clock moves only when somebody sleeps or waits; what scripted runtimes and tests have scheduled happens
// meanwhile. Files, sharing, locks, processes, jobs, the error box and chance are under the test's control; faults are
// switched on by name. What is not simulated: threads, the order of bytes on a disk that loses power (a change is
// durable at once), file identities, access checks beyond a directory's owner and list.
//
// Misuse of the platform is noticed by itself and fails the test when the machine is destroyed: a handle closed twice,
// never given out or left open; state files changed without state.lock; a start or a sleep while state.lock is held; a
// start while the last job is busy; a runtime that outlives its launcher; a run that would go on for ever.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "state/boot_state.h"
#include "tests/simulation/sim_calls.h"
#include "tests/simulation/sim_clock.h"
#include "tests/simulation/sim_disk.h"
#include "tests/simulation/sim_handles.h"
#include "tests/simulation/sim_open_files.h"
#include "tests/simulation/sim_process.h"
#include "tests/simulation/sim_runtime.h"

namespace launcher_stub::sim {

// Leaves the code under test when its process is killed. Not a std::exception: nothing in the product may catch it.
struct LauncherKilled {};

// Leaves the code under test when a run does not end.
struct Runaway : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// How a run of the launcher's process ended.
struct RunOutcome {
  int exitCode = 0;  // 1 for a killed process, 3 after an uncaught exception
  bool killed = false;
  std::string uncaught;              // text of an exception that left the code under test
  std::uint64_t startedAt = 0;       // ms
  std::uint64_t returnedAt = 0;      // ms; the launch sequence was done
  std::uint64_t processEndedAt = 0;  // ms; no box keeps the process alive any more; `forever` where one does
};

struct TimedText {
  std::uint64_t time = 0;  // ms
  std::string text;
};

struct Box {
  std::uint64_t openedAt = 0;  // ms
  std::uint64_t closesAt = 0;  // ms; `forever` where nobody closes it
  std::string text;            // UTF-8
};

// One durable replacement that succeeded.
struct Replacement {
  std::uint64_t time = 0;  // ms
  std::wstring path;
  std::string contents;
};

// Documents as the installer and the runtime write them.
std::string bootStateDocument(const BootState& state);
std::string bootstrapDocument(const std::optional<std::string>& stateRoot = std::nullopt, int schemaVersion = 1);
std::string pendingDocument(const std::string& requestId, std::uint64_t expectedGeneration,
                            const std::string& candidate);
std::string deliveryDocument(char digit);  // 64 times this hexadecimal digit

class SimOs {
 public:
  // A machine with an install directory and a valid bootstrap, but no runtime and no state root. One at a time in each
  // thread.
  explicit SimOs(std::uint64_t startMs = 300'000);
  ~SimOs();
  SimOs(const SimOs&) = delete;
  SimOs& operator=(const SimOs&) = delete;

  // --- Laying out the machine ---

  std::wstring installDirectory() const { return installDirectory_; }
  void setInstallDirectory(const std::wstring& path) { installDirectory_ = path; }
  std::wstring installPath(std::wstring_view name) const { return installDirectory_ + L"\\" + std::wstring(name); }
  std::wstring stateRoot() const;  // the one under LOCALAPPDATA, unless the test names another
  void setStateRoot(const std::wstring& path) { stateRoot_ = path; }
  std::wstring statePath(std::wstring_view name) const { return stateRoot() + L"\\" + std::wstring(name); }
  std::wstring slotPath(const std::string& slot, std::wstring_view name) const;  // "seed" lies in the install directory

  void writeBootstrap(const std::string& document) { writeFile(installPath(L"bootstrap-v1.json"), document); }
  void writeBootState(const BootState& state) { writeFile(statePath(L"boot-v1.json"), bootStateDocument(state)); }
  void writePreviousState(const BootState& state);
  void writePending(const std::string& requestId, std::uint64_t expectedGeneration, const std::string& candidate);
  void writeDelivery(const std::string& slot, char digit);

  // A complete slot and what happens when it is started. Of several runtimes the last one serves all later starts.
  void install(const std::string& slot, const Runtime& runtime);
  void install(const std::string& slot, std::initializer_list<Runtime> runtimes);
  void install(const std::string& slot, RuntimeScript script);
  void install(const std::string& slot, Runtime (*make)()) { install(slot, make()); }
  void installSeed(Runtime (*make)()) { install("seed", make()); }
  void installSeed(const Runtime& runtime) { install("seed", runtime); }
  void installSeed(RuntimeScript script) { install("seed", std::move(script)); }

  void writeFile(const std::wstring& path, std::string_view contents);  // with its directories; must succeed
  void makeDirectory(const std::wstring& path) { disk_.makeDirectories(path, fileTime()); }
  void remove(const std::wstring& path);  // a file, or a directory with all in it; must be there
  Disk& disk() { return disk_; }
  bool exists(const std::wstring& path) const { return disk_.find(path) != nullptr; }
  std::string read(const std::wstring& path) const;                 // empty where there is no file
  std::vector<std::wstring> names(const std::wstring& path) const;  // of a directory's entries
  std::optional<BootState> bootState() const;                       // what "boot-v1.json" says
  std::optional<BootState> previousState() const;
  std::uint64_t generation() const;  // of "boot-v1.json"; 0 where it is not readable

  void setArguments(std::vector<std::wstring> arguments) { arguments_ = std::move(arguments); }
  void setExecutablePath(std::wstring path) { executablePath_ = std::move(path); }  // "": it cannot be had
  void setVariable(const std::wstring& name, const std::wstring& value);
  void removeVariable(const std::wstring& name);
  void addEnvironmentEntry(const std::wstring& entry) { environment_.push_back(entry); }  // raw, at the end
  void setVolumeKeepsLists(bool keeps) { volumeKeepsLists_ = keeps; }
  void setMemberOfAdministrators(bool member) { memberOfAdministrators_ = member; }
  void setOwner(const std::wstring& path, Owner owner) { disk_.attributes(path)->owner = owner; }
  void setListDrifted(const std::wstring& path) { disk_.attributes(path)->listIsPrivate = false; }
  void setRandomSeed(std::uint64_t seed) { random_.seed(seed); }
  void setBoxStaysOpenFor(std::uint64_t ms) { boxStaysOpenFor_ = ms; }  // `forever`: nobody closes it
  void closeBox();

  // --- Time, other processes, faults ---

  std::uint64_t now() const { return clock_.now(); }
  std::uint64_t fileTime() const { return fileTimeAtZero + clock_.now() * 10'000; }  // 100 ns
  void at(std::uint64_t ms, Action action) { clock_.schedule(ms, std::move(action)); }
  void after(std::uint64_t ms, Action action) { clock_.schedule(now() + ms, std::move(action)); }
  void advance(std::uint64_t ms);                           // as if somebody slept
  void setTimeLimit(std::uint64_t ms) { timeLimit_ = ms; }  // of one run; 2 hours

  // Another process opens a file or directory (an absent file is created) and lets others do only what `share` says.
  int holdFile(const std::wstring& path, Access share = accessNone);
  void release(int hold);
  void holdFor(const std::wstring& path, std::uint64_t ms, Access share = accessNone);

  Fault& fail(Call call, const std::wstring& pattern = L"", std::uint32_t code = win32::accessDenied);
  void clearFaults() { log_.faults.clear(); }
  // Does something in the very moment of a call: of the first matching one after `skip` others.
  void before(Call call, const std::wstring& pattern, std::function<void()> action, int skip = 0);

  void endRuntime(std::uint32_t code);  // the runtime that was started last dies by itself

  // --- Running ---

  int runLauncher();                                           // the whole launch sequence in a process of its own
  int runProcess(const std::function<int()>& launchSequence);  // the same for other code
  const RunOutcome& lastRun() const { return outcome_; }

  // The kill: nothing of the process's later calls happens, the system closes its handles, its jobs take their
  // processes along. Calls and changes are counted from now on; each change has a point before and one after it.
  void killLauncherAt(std::uint64_t ms);
  void killLauncherAtCall(std::uint64_t number) { killAtCall_ = log_.total() + number; }
  void killLauncherAtChangePoint(std::uint64_t number) { killAtChangePoint_ = changePoints_ + number; }
  void killLauncherNow();  // from an action; elsewhere nothing happens
  std::uint64_t changePoints() const { return changePoints_; }

  // --- What was done ---

  const std::vector<Start>& starts() const { return starts_; }
  std::vector<std::string> started() const;  // slots, in order
  Process* processOf(const Start& start) { return processes_.find(start.pid); }
  int livingProcesses();  // of launchers' trees
  std::vector<std::string> lines() const;
  const std::vector<TimedText>& timedLines() const { return lines_; }
  int lineCount(std::string_view line) const;
  const std::vector<Box>& boxes() const { return boxes_; }
  const std::vector<Replacement>& replacements() const { return replacements_; }
  int replacementsOf(const std::wstring& pattern) const;
  int count(Call call) const { return log_.count(call); }
  std::uint64_t calls() const { return log_.total(); }
  std::string trace() const;

  const std::vector<std::string>& problems() const { return problems_; }
  std::vector<std::string> takeProblems();  // the test expected them: they no longer fail it
  void clearRecords();                      // starts, lines, boxes, replacements, trace: for lives of thousands of runs
  void allowUnlockedWrites() { checksStateLock_ = false; }  // for tests of the file routines themselves

  // What a destroyed machine does with its problems and its trace; by default a message and an abort.
  using ProblemHandler = void (*)(const std::string& text);
  static void setProblemHandler(ProblemHandler handler);

  // --- For the bodies of the platform functions and the scripts ---

  static SimOs& current();  // ends the program with a message where there is none
  static SimOs* currentOrNull();

  // A call begins: it is counted, hooks run, the process may be killed here. The code of a fault that strikes, else 0.
  std::uint32_t begin(Call call, std::wstring_view path = {});
  std::uint32_t faultFor(Call call, std::wstring_view path);  // of a step that is not counted
  void note(Call call, std::wstring_view path, std::string_view result);
  void note(std::string_view name, std::wstring_view path, std::string_view result);
  void problem(const std::string& text);

  // Makes a change to the disk or the processes: a crash can come before and after, never in between.
  template <typename Change>
  auto change(const Change& make) {
    changePoint();
    auto result = make();
    changePoint();
    return result;
  }

  bool launcherDead() const { return dead_; }
  std::uint32_t write(const std::wstring& path, std::string_view contents);  // by a process other than the launcher
  void requireStateLock(const std::wstring& path, std::string_view what);
  bool launcherHolds(std::wstring_view fileName);  // a file of that name is held open by the launcher
  void closeHandle(void* handle) noexcept;
  void recordReplacement(const std::wstring& path, std::string_view contents);

  Process& createProcess(const Start& start, int inheritedFile);
  void resume(std::uint32_t pid);
  void terminate(std::uint32_t pid, std::uint32_t code);
  void terminateJob(int job, std::uint32_t code);
  void endProcess(std::uint32_t pid, std::uint32_t code);
  bool runtimeAlive(std::uint32_t pid);
  std::uint32_t startGrandchild(std::uint32_t parent, std::uint64_t livesMs);
  void holdByProcess(std::uint32_t pid, const std::wstring& path, Access share, std::uint64_t forMs);
  bool hasScript(const std::wstring& executable) const { return scripts_.contains(disk_.resolvedKey(executable)); }
  std::string slotOf(const std::wstring& executable) const;

  OpenFiles& openFiles() { return openFiles_; }
  HandleTable& handles() { return handles_; }
  ProcessTable& processes() { return processes_; }

  // State of the launcher's process and of the machine, for the bodies.
  struct ProcessState {
    int run = 0;
    std::uint32_t pid = 4312;
    bool contained = false;
    bool boxOpened = false;
    std::vector<std::string> noticesGiven;
  };
  ProcessState& process() { return process_; }
  bool volumeKeepsLists() const { return volumeKeepsLists_; }
  bool memberOfAdministrators() const { return memberOfAdministrators_; }
  const std::vector<std::wstring>& arguments() const { return arguments_; }
  const std::vector<std::wstring>& environment() const { return environment_; }
  std::wstring executablePath() const;
  std::uint64_t randomBits() { return random_(); }
  void recordLine(std::string_view text) { lines_.push_back({now(), std::string(text)}); }
  void openBox(const std::string& text);
  Box* openedBox();  // of this process; null where none was opened

 private:
  static constexpr std::uint64_t fileTimeAtZero = 134'000'000'000'000'000;  // a day in 2025

  struct Script {
    std::string slot;
    RuntimeScript script;
    int starts = 0;
  };

  void beginProcess();
  void endLauncherProcess();
  void finishRun();
  void changePoint();
  [[noreturn]] void runAway(const std::string& why);
  void checkNothingLeftOpen();

  Disk disk_;
  SimClock clock_;
  OpenFiles openFiles_;
  HandleTable handles_;
  ProcessTable processes_;
  CallLog log_;
  std::map<std::wstring, Script> scripts_;  // by the executable's key
  std::map<int, int> holds_;                // number of a hold, of its open file
  int lastHold_ = 0;

  std::wstring installDirectory_ = L"C:\\App";
  std::optional<std::wstring> stateRoot_;
  std::optional<std::wstring> executablePath_;
  std::vector<std::wstring> arguments_;
  std::vector<std::wstring> environment_;
  bool volumeKeepsLists_ = true;
  bool memberOfAdministrators_ = false;
  std::mt19937_64 random_{20250101};
  std::uint64_t boxStaysOpenFor_ = 1'000;

  ProcessState process_;
  bool running_ = false;  // inside runProcess
  bool dead_ = false;     // the process has been killed; only its unwinding is left
  RunOutcome outcome_;
  std::uint64_t timeLimit_ = 2 * 60 * 60 * 1'000;
  std::uint64_t callsAtThisTime_ = 0;
  std::uint64_t timeOfLastCall_ = 0;
  std::uint64_t killAtCall_ = forever;
  std::uint64_t killAtChangePoint_ = forever;
  std::uint64_t changePoints_ = 0;

  std::vector<Start> starts_;
  std::vector<TimedText> lines_;
  std::vector<Box> boxes_;
  std::vector<Replacement> replacements_;
  std::vector<std::string> problems_;
  bool checksStateLock_ = true;
};

}  // namespace launcher_stub::sim
