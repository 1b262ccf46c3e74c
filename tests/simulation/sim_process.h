// Processes and jobs of the simulated machine, and the record of what was started.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace launcher_stub::sim {

// A start of the runtime that came about.
struct Start {
  std::string slot;  // the slot's name or "seed"
  std::wstring executable;
  std::vector<std::wstring> arguments;    // as forwarded
  std::wstring commandLine;               // as the child gets it
  std::vector<std::wstring> environment;  // entries in the block's order
  std::uint64_t leaseHandle = 0;          // value of the one inherited handle
  bool leaseInherited = false;            // it is launch.lock's
  std::wstring stateRoot;
  std::wstring attemptDirectory;
  std::uint64_t time = 0;  // ms
  int run = 0;             // of the launcher, from 1
  std::uint32_t pid = 0;

  // The value of a variable, exact name; empty where there is none.
  std::wstring variable(const std::wstring& name) const;
};

struct Process {
  std::uint32_t pid = 0;
  int job = 0;          // 0: in none
  int launcherRun = 0;  // the launcher whose tree it belongs to; 0: of no launcher
  std::string name;     // for messages
  bool alive = true;
  bool suspended = false;
  bool terminated = false;  // told to end; may linger
  std::uint32_t exitCode = 259;
  std::uint64_t endedAt = 0;              // ms
  std::uint64_t survivesTermination = 0;  // ms for which it lingers when it is terminated
  std::vector<int> openFiles;             // numbers of open files
  int start = -1;                         // index of its Start; -1: a grandchild
};

struct Job {
  bool killOnClose = false;
  int handles = 0;
};

class ProcessTable {
 public:
  Process& create(const std::string& name, int launcherRun);
  Process* find(std::uint32_t pid);                              // also one that has ended
  std::vector<std::uint32_t> living() const { return living_; }  // pids, in the order of their starts; a copy
  void end(Process& process, std::uint32_t exitCode, std::uint64_t timeMs);

  int createJob();
  Job& job(int number) { return jobs_.at(static_cast<std::size_t>(number) - 1); }
  bool isJob(int number) const { return number > 0 && static_cast<std::size_t>(number) <= jobs_.size(); }
  int activeIn(int job);

 private:
  std::vector<Process> processes_;
  std::vector<std::uint32_t> living_;
  std::vector<Job> jobs_;
};

}  // namespace launcher_stub::sim
