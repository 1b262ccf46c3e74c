#include "tests/simulation/sim_process.h"

#include <algorithm>

namespace launcher_stub::sim {
namespace {

constexpr std::uint32_t firstChildPid = 7000;
constexpr std::uint32_t pidStep = 4;

}  // namespace

std::wstring Start::variable(const std::wstring& name) const {
  for (const std::wstring& entry : environment) {
    if (entry.starts_with(name + L"=")) return entry.substr(name.size() + 1);
  }
  return {};
}

Process& ProcessTable::create(const std::string& name, int launcherRun) {
  Process process;
  process.pid = firstChildPid + pidStep * static_cast<std::uint32_t>(processes_.size());
  process.name = name;
  process.launcherRun = launcherRun;
  processes_.push_back(process);
  living_.push_back(process.pid);
  return processes_.back();
}

Process* ProcessTable::find(std::uint32_t pid) {
  const std::size_t index = (pid - firstChildPid) / pidStep;
  return pid >= firstChildPid && index < processes_.size() ? &processes_[index] : nullptr;
}

int ProcessTable::createJob() {
  jobs_.emplace_back();
  return static_cast<int>(jobs_.size());
}

int ProcessTable::activeIn(int job) {
  return static_cast<int>(
      std::count_if(living_.begin(), living_.end(), [&](std::uint32_t pid) { return find(pid)->job == job; }));
}

void ProcessTable::end(Process& process, std::uint32_t exitCode, std::uint64_t timeMs) {
  process.alive = false;
  process.exitCode = exitCode;
  process.endedAt = timeMs;
  std::erase(living_, process.pid);
}

}  // namespace launcher_stub::sim
