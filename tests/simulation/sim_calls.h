// The record of what was asked of the platform, and the faults that it answers with.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace launcher_stub::sim {

// Every call of the platform layer, and the steps of which the larger ones consist.
enum class Call : std::uint8_t {
  status,
  readFile,  // pathStatus, readStateFile
  replace,
  createTemporary,
  writeTemporary,
  flushTemporary,
  closeTemporary,  // replaceFileDurably and its steps;
  rename,
  deleteTemporary,  //   rename: one for each try
  removeFile,
  openLock,
  lockTry,
  closeHandle,  // lockTry: one for each try
  listDirectory,
  entryStatus,
  entryTime,
  nextEntry,  // of one entry of a listing
  removeEmptyDirectory,
  removeDirectoryTree,
  removeEntry,  // removeEntry: inside of a tree
  createPrivateDirectory,
  createDirectory,
  verifyDirectory,
  readVolume,
  readSecurity,
  checkMembership,
  takeOwnership,
  resetList,
  startChild,
  duplicateLease,
  buildHandleList,
  readEnvironment,
  createProcess,
  createJob,
  limitJob,
  assignToJob,
  resumeThread,
  pollExit,
  readExitCode,
  queryJob,
  endProcessTree,
  terminateJob,
  random,
  sleep,
  logLine,
  showError,
  waitForErrorBox,
  executablePath,
  commandLine,
  environmentVariable,
  containProcess,
  count_,
};

std::string_view callName(Call call);

// Of files, directories or locks: not of processes, chance or the reporting channels.
constexpr bool isOfFiles(Call call) { return call <= Call::resetList; }

// The Win32 codes with which a call of this kind may fail, the likeliest first; empty for what cannot fail.
const std::vector<std::uint32_t>& errorsOf(Call call);

constexpr std::uint64_t forever = std::numeric_limits<std::uint64_t>::max();

// A fault: the calls of one kind fail with a Win32 code, all of them unless it is narrowed down.
class Fault {
 public:
  Fault(Call call, std::wstring pattern, std::uint32_t code) : call_(call), pattern_(std::move(pattern)), code_(code) {}

  Fault& times(int count) { return left_ = count, *this; }               // only so many calls
  Fault& skip(int count) { return skipped_ = count, *this; }             // not the first so many
  Fault& from(std::uint64_t timeMs) { return from_ = timeMs, *this; }    // only when the clock shows at least this
  Fault& until(std::uint64_t timeMs) { return until_ = timeMs, *this; }  // and less than this
  void stop() { left_ = 0; }

  std::uint32_t code() const { return code_; }
  // True when it strikes now; counts itself down.
  bool strikes(Call call, std::wstring_view path, std::uint64_t nowMs);

 private:
  Call call_;
  std::wstring pattern_;
  std::uint32_t code_;
  int left_ = std::numeric_limits<int>::max();
  int skipped_ = 0;
  std::uint64_t from_ = 0;
  std::uint64_t until_ = forever;
};

// Something to be done in the very moment of a call, before it takes effect.
struct Hook {
  Call call;
  std::wstring pattern;
  int skip = 0;  // so many matching calls pass first
  std::function<void()> action;
  bool done = false;
};

class CallLog {
 public:
  // A line of the trace. One that was seen a few lines ago only counts there, so that idle ticks don't drown the rest.
  void note(std::string_view name, std::wstring_view path, std::string_view result, std::uint64_t nowMs);

  void countCall(Call call) { ++counts_[static_cast<std::size_t>(call)], ++total_; }
  int count(Call call) const { return counts_[static_cast<std::size_t>(call)]; }
  std::uint64_t total() const { return total_; }

  std::string trace() const;
  void clear();

  std::deque<Fault> faults;  // a deque: a reference to a fault stays good
  std::deque<Hook> hooks;

 private:
  struct Line {
    std::string_view name;  // of static storage
    std::wstring path;
    std::string result;
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    int repetitions = 1;
  };
  std::deque<Line> lines_;
  std::uint64_t dropped_ = 0;
  std::uint64_t total_ = 0;
  int counts_[static_cast<std::size_t>(Call::count_)] = {};
};

}  // namespace launcher_stub::sim
