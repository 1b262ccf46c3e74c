// An installation on the real disk, put back into its first state before every launch.
#pragma once

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/call_faults/watch.h"
#include "tests/support/windows_temp_directory.h"

namespace call_faults {

enum class Root {
  ready,    // named by the bootstrap, with slots and attempts
  missing,  // named by the bootstrap, with two directories above it
  local,    // below LOCALAPPDATA, missing
};

// One kind of launch: what is there before it, what the runtimes do, and what comes of it where nothing fails.
struct LaunchKind {
  std::string name;
  std::string why;
  Root root = Root::ready;
  std::string state = {};  // documents; empty: not there
  std::string previous = {};
  std::string pending = {};
  std::string bootstrap = {};                        // empty: a right one, "none": not there
  std::map<std::string, RuntimePlan> runtimes = {};  // by slot
  std::string brokenSlot = {};                       // its executable is none
  std::string foreignSlot = {};                      // its delivery is not the seed's
  std::string promoted = {};                         // the candidate, where it becomes active
  std::uint64_t damagedGeneration = 0;               // what a damaged state still tells
  bool oldAttempts = false;
  Circumstances circumstances = {};

  DWORD exitCode = 0;
  std::vector<std::string> started = {};  // slots, in order
  std::vector<std::string> lines = {};    // without the notice of the list, which Wine gives at every launch
  std::uint64_t lastsMs = 0;              // of the launch's own time, where that matters
  bool startsAfterwards = true;           // the next launch has something to start
};

const std::vector<LaunchKind>& launchKinds();
// For a failing test.
inline void PrintTo(const LaunchKind& kind, std::ostream* stream) { *stream << kind.name << ": " << kind.why; }

// What is on the disk, as far as a launcher looks at it.
struct Documents {
  std::optional<std::string> state;
  std::optional<std::string> previous;
  std::optional<std::string> pending;
  std::vector<std::wstring> attempts;
  std::vector<std::wstring> temporaries;  // anywhere in the state root
};

class World {
 public:
  explicit World(const LaunchKind& kind);

  // Everything as it was before the first launch.
  void reset();
  Documents documents() const;
  // What does not belong to the launcher is as it was.
  bool othersUntouched() const;

  const std::wstring& stateRoot() const { return root_; }
  std::wstring launcher() const { return install_ + L"\\launcher.exe"; }
  std::map<std::wstring, RuntimePlan> plans() const;  // by executable
  std::string slotOf(const std::wstring& executable) const;

 private:
  std::wstring slotDirectory(const std::string& slot) const;
  void installRuntime(const std::string& slot, const RuntimePlan& plan);
  void makeOldAttempts();

  const LaunchKind& kind_;
  launcher_stub::tests::TempDirectory base_;
  std::wstring install_;
  std::wstring root_;
  std::wstring outside_;  // where a link among the attempts leads
};

}  // namespace call_faults
