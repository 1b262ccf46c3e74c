// A simulated Windows machine under the launcher: one implementation of everything that os/*.h declares, in memory and
// in virtual time. Code under test is linked with it instead of the real platform layer and does not know.
//
// The clock moves only when somebody sleeps or waits; what scripted runtimes and tests have scheduled happens
// meanwhile. Files, sharing, locks, processes, jobs, the error box and chance are under the test's control; faults are
// switched on by name, by the number of a call, or for a while. A second launcher runs in the middle of the first one's
// calls. The same steps give the same run: nothing comes from outside.
//
// The fault model. A launcher may be killed before or after each call that changes anything; what it did stays done,
// and its locks, its jobs and their processes go with it. The power may be cut at the same moments: what the disk then
// holds stands in sim_power_cut.h. Any call may fail with a code of its kind (`errorsOf`); a failed call has changed
// nothing. Memory may run out in the code under test, not inside the platform. Not simulated: threads, damaged sectors,
// file identities, access checks beyond a directory's owner and list, a clock that runs backwards.
//
// Misuse of the platform is noticed by itself and fails the test when the machine is destroyed: a handle closed twice,
// never given out or left open; state files changed without state.lock, or while another launcher holds the lease; a
// raised generation written before the state in force is safe as the previous copy; a start or a sleep while state.lock
// is held; a start while the last job is busy; a child that runs outside its job; a runtime that outlives its launcher;
// a run that would go on for ever.
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
  int run = 0;  // of the launcher, from 1
};

struct Box {
  std::uint64_t openedAt = 0;  // ms
  std::uint64_t closesAt = 0;  // ms; `forever` where nobody closes it
  std::string text;            // UTF-8
  int run = 0;                 // of the launcher, from 1
};

// One durable replacement that succeeded.
struct Replacement {
  std::uint64_t time = 0;  // ms
  std::wstring path;
  std::string contents;
};

// What fails in an outage.
enum class Outage {
  everything,
  files,  // with directories and locks; processes, chance and the two reporting channels work
};

// Is told of what happens, at the moment at which it happens.
class Observer {
 public:
  virtual ~Observer() = default;
  virtual void launcherStarts() {}
  virtual void calls(Call /*call*/, std::wstring_view /*path*/) {}
  virtual void fails(Call /*call*/, std::wstring_view /*path*/, std::uint32_t /*code*/) {}  // by a fault, switched on
  virtual void reads(const std::wstring& /*path*/, bool /*whole*/) {}  // of a state file, with its result
  virtual void polls(const Process& /*child*/) {}                      // the launcher looks at its child
  virtual void mayBeCutOff() {}                                        // before and after each change
  virtual void sleeps() {}                                             // between two ticks or two tries
  virtual void replaces(const std::wstring& /*path*/, std::string_view /*contents*/) {}  // durably; before it is done
  virtual void replaced(const std::wstring& /*path*/, std::string_view /*contents*/) {}  // and after
  virtual void starts(const Start& /*start*/) {}                                         // the child runs from now on
  virtual void launcherEnded(const RunOutcome& /*outcome*/) {}
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
  void setScript(const std::string& slot, RuntimeScript script);  // what happens when it is started; writes no file

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
  // The system knows no longer paths, in code units: what is called with one is not found. None by default.
  void setLongestPath(std::size_t units) { longestPath_ = units; }
  void setRandomSeed(std::uint64_t seed) { random_.seed(seed); }
  void setBoxStaysOpenFor(std::uint64_t ms) { boxStaysOpenFor_ = ms; }  // `forever`: nobody closes it
  void closeBox();

  // --- Time, other processes, faults ---

  std::uint64_t now() const { return clock_.now(); }
  std::uint64_t fileTime() const { return fileTimeAtZero_ + clock_.now() * 10'000; }  // 100 ns
  // The time of day, for a machine that starts again: `now()` begins anew, times of files go on.
  void setFileTime(std::uint64_t time) { fileTimeAtZero_ = time - clock_.now() * 10'000; }
  void at(std::uint64_t ms, Action action) { clock_.schedule(ms, std::move(action)); }
  void after(std::uint64_t ms, Action action) { clock_.schedule(now() + ms, std::move(action)); }
  void advance(std::uint64_t ms);                           // as if somebody slept
  void setTimeLimit(std::uint64_t ms) { timeLimit_ = ms; }  // of one run; 2 hours

  // Another process opens a file or directory (an absent file is created) and lets others do only what `share` says.
  int holdFile(const std::wstring& path, Access share = accessNone);
  void release(int hold);
  void holdFor(const std::wstring& path, std::uint64_t ms, Access share = accessNone);

  Fault& fail(Call call, const std::wstring& pattern = L"", std::uint32_t code = win32::accessDenied);
  void clearFaults() {
    log_.faults.clear();
    failedCall_ = forever;
    outageFrom_ = forever;
  }
  // One call fails, whatever it is: the one with this number, counted from now on.
  void failCallNumber(std::uint64_t number, std::uint32_t code) {
    failedCall_ = log_.total() + number;
    failedCallCode_ = code;
  }
  // From the call with this number on, for a time, every call fails that can, with the first of its errors.
  void failAllFromCall(std::uint64_t number, std::uint64_t forMs, Outage outage = Outage::everything) {
    outage_ = outage;
    outageFrom_ = log_.total() + number;
    outageMs_ = forMs;
    outageUntil_ = forever;
  }
  // Does something in the very moment of a call: of the first matching one after `skip` others.
  void before(Call call, const std::wstring& pattern, std::function<void()> action, int skip = 0);
  void clearHooks() { log_.hooks.clear(); }

  void endRuntime(std::uint32_t code);  // the runtime that was started last dies by itself

  // --- Running ---

  int runLauncher();                                           // the whole launch sequence in a process of its own
  int runProcess(const std::function<int()>& launchSequence);  // the same for other code
  const RunOutcome& lastRun() const { return outcome_; }
  // A second launcher, started by an action or a hook while the first one runs. It goes on until it ends, be it that it
  // has found the lease taken or that it has lived a whole life; the first one stands still meanwhile.
  RunOutcome runSecondLauncher();
  bool launcherRuns() const { return running_ && !dead_; }

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
  std::vector<std::string> takeProblems();               // the test expected them: they no longer fail it
  void setTracing(bool tracing) { tracing_ = tracing; }  // off: faster; the trace stays empty
  bool tracing() const { return tracing_; }
  void observe(Observer* observer) { observer_ = observer; }
  void observeNoLonger() { observer_ = &nobody_; }
  Observer& observer() { return *observer_; }
  void clearRecords();  // starts, lines, boxes, replacements, trace: for lives of thousands of runs
  void allowUnlockedWrites() { checksStateLock_ = false; }  // for tests of the file routines themselves

  // What a destroyed machine does with its problems and its trace; by default a message and an abort.
  using ProblemHandler = void (*)(const std::string& text);
  static void setProblemHandler(ProblemHandler handler);

  // --- For the bodies of the platform functions and the scripts ---

  static SimOs& current();  // ends the program with a message where there is none
  static SimOs* currentOrNull();

  // A call begins: it is counted, hooks run, the process may be killed here. The code of a fault that strikes, else 0.
  std::uint32_t begin(Call call, std::wstring_view path = {});
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
  void* makeHandle(HandleKind kind, int object) { return handles_.make(kind, object, process_.run); }
  void beginReplacement(const std::wstring& path, std::string_view contents);  // before the target changes
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
    bool runsLaunchSequence = false;  // the whole of it, not a part that a test calls
    bool goesOnFromCopy = false;      // it has read "boot-v1.previous.json" and not written "boot-v1.json" since
    bool contained = false;
    bool containmentRefused = false;  // the system would not put it into a job of its own
    int box = -1;                     // index of its box; -1: none was opened
    std::vector<std::string> noticesGiven;
  };
  ProcessState& process() { return process_; }
  bool volumeKeepsLists() const { return volumeKeepsLists_; }
  bool memberOfAdministrators() const { return memberOfAdministrators_; }
  const std::vector<std::wstring>& arguments() const { return arguments_; }
  const std::vector<std::wstring>& environment() const { return environment_; }
  std::wstring executablePath() const;
  std::uint64_t randomBits() { return random_(); }
  void recordLine(std::string_view text) { lines_.push_back({now(), std::string(text), process_.run}); }
  void openBox(const std::string& text);
  Box* openedBox();  // of this process; null where none was opened

 private:
  struct Script {
    std::string slot;
    RuntimeScript script;
    int starts = 0;
  };

  std::uint32_t faultFor(Call call, std::wstring_view path);
  void beginProcess();
  void endLauncherProcess();
  void finishRun();
  void changePoint();
  [[noreturn]] void runAway(const std::string& why);
  void checkNothingLeftOpen();
  void requirePreviousCopy(const std::wstring& path, std::string_view contents);

  Disk disk_;
  SimClock clock_;
  std::uint64_t fileTimeAtZero_ = 134'000'000'000'000'000;  // a day in 2025
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
  std::size_t longestPath_ = std::wstring_view::npos;
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
  bool tracing_ = true;
  int lastRun_ = 0;
  std::uint32_t lastPid_ = 4312;
  std::uint64_t failedCall_ = forever;
  std::uint32_t failedCallCode_ = 0;
  Outage outage_ = Outage::everything;
  std::uint64_t outageFrom_ = forever;
  std::uint64_t outageMs_ = 0;
  std::uint64_t outageUntil_ = forever;
  Observer nobody_;
  Observer* observer_ = &nobody_;
};

}  // namespace launcher_stub::sim
