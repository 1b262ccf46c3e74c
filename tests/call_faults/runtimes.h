// The runtimes that a launch starts: real processes, each alive for as long as its plan says in the launch's own time.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace call_faults {

// What the runtime of a slot does. `script`: letters that runtime_main.cpp knows, then the exit code.
struct RuntimePlan {
  std::string script;
  std::uint64_t lifeMs = 0;  // only for a script with "w", which waits to be ended
};

class Runtimes {
 public:
  Runtimes();
  Runtimes(const Runtimes&) = delete;
  Runtimes& operator=(const Runtimes&) = delete;
  ~Runtimes();

  void begin(const std::map<std::wstring, RuntimePlan>& plans);  // by executable
  void created(HANDLE process, HANDLE thread, const std::wstring& executable);
  // Waits until the runtime has done what its script says and has ended or waits for its end.
  void resumed(HANDLE thread, std::uint64_t now);
  void timePassed(std::uint64_t now);
  // Waits until no process of a job that was ended is left.
  static void jobEnded(HANDLE job);

  struct Run {
    std::wstring executable;
    HANDLE process = nullptr;  // our own
    DWORD threadId = 0;
    std::uint64_t endsAt = 0;  // 0: not yet resumed, or it ends by itself
    bool resumed = false;
  };
  const std::vector<Run>& runs() const { return runs_; }
  // Those that have not ended within a few seconds. Ends them.
  std::vector<std::wstring> survivors();

 private:
  std::map<std::wstring, RuntimePlan> plans_;
  std::vector<Run> runs_;
  HANDLE settled_ = nullptr;  // set by a runtime that waits for its end
  HANDLE end_ = nullptr;      // set to end it
};

}  // namespace call_faults
