// Scripted runtimes: what a started process does, and when.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/simulation/sim_calls.h"
#include "tests/simulation/sim_open_files.h"
#include "tests/simulation/sim_process.h"

namespace launcher_stub::sim {

class SimOs;

// In what condition a runtime leaves a document.
enum class Form {
  right,
  otherNonce,  // of another attempt of the same slot
  otherSlot,
  half,  // cut in the middle, as a reader may catch it
  noSchemaVersion,
  newerMajor,  // "schemaVersion" 2
  empty,
};

// A running runtime, as its own script sees it.
class RunningRuntime {
 public:
  RunningRuntime(SimOs& sim, const Start& start, int startNumber) : sim_(sim), start_(start), number_(startNumber) {}

  SimOs& sim() const { return sim_; }
  const Start& start() const { return start_; }
  int startNumber() const { return number_; }  // of this slot, from 1
  bool alive() const;

  // The slot and the nonce of this attempt, as its record on the disk says.
  std::string slot() const;
  std::string nonce() const;
  std::wstring attemptPath(std::wstring_view name) const;
  std::wstring statePath(std::wstring_view name) const;

  void write(const std::wstring& path, std::string_view contents) const;
  void exit(std::uint32_t code) const;
  std::uint32_t startGrandchild(std::uint64_t livesMs) const;  // its pid
  void hold(const std::wstring& path, Access share, std::uint64_t forMs) const;

 private:
  SimOs& sim_;
  Start start_;
  int number_;
};

// A slot reference document ("ready-v1", "healthy-v1"; with more members "restart-v1.json") in a given condition.
std::string slotReference(Form form, const std::string& slot, const std::string& nonce,
                          const std::optional<std::string>& requestId = std::nullopt);

// A script. All times are milliseconds since the start of the process. Where nothing says that it exits, it runs until
// it is ended.
class Runtime {
 public:
  using Act = std::function<void(RunningRuntime&)>;

  Runtime& doesAt(std::uint64_t ms, Act act);
  Runtime& exitsAt(std::uint64_t ms, std::uint32_t code);
  Runtime& readyAt(std::uint64_t ms, Form form = Form::right);
  Runtime& healthyAt(std::uint64_t ms, Form form = Form::right);
  Runtime& requestsRestartAt(std::uint64_t ms, Form form = Form::right,
                             const std::optional<std::string>& requestId = std::nullopt);
  // Leaves "pending-v1.json"; without a generation it names the one that stands in "boot-v1.json" at that time.
  Runtime& requestsUpdateAt(std::uint64_t ms, const std::string& requestId, const std::string& candidate,
                            std::optional<std::uint64_t> expectedGeneration = std::nullopt);
  Runtime& writesAttemptFileAt(std::uint64_t ms, const std::wstring& name, const std::string& contents);
  Runtime& writesStateFileAt(std::uint64_t ms, const std::wstring& name, const std::string& contents);
  Runtime& startsGrandchildAt(std::uint64_t ms, std::uint64_t livesMs = forever);
  // Keeps a file or directory open with the given sharing, as long as it lives or for a time.
  Runtime& holdsAt(std::uint64_t ms, const std::wstring& path, Access share, std::uint64_t forMs = forever);
  Runtime& holdsAttemptDirectoryAt(std::uint64_t ms);
  Runtime& survivesTermination(std::uint64_t ms);  // lingers so long in its job, doing nothing; `forever` for good

  static Runtime healthy();                     // ready, healthy, ends with 0 after 90 s: a candidate gets promoted
  static Runtime silent();                      // gives no sign, never ends
  static Runtime crashing(std::uint32_t code);  // ends with the code after 50 ms, without a sign

  // For the simulation.
  struct Step {
    std::uint64_t at;
    Act act;
  };
  const std::vector<Step>& steps() const { return steps_; }
  std::uint64_t lingersMs() const { return lingersMs_; }

 private:
  std::vector<Step> steps_;
  std::uint64_t lingersMs_ = 0;
};

// The script for each start of a slot, counted from 1.
using RuntimeScript = std::function<Runtime(int startNumber)>;

}  // namespace launcher_stub::sim
