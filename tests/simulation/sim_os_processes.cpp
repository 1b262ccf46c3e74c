// The rules of processes and jobs.
#include <algorithm>

#include "tests/simulation/sim_os.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::sim {
namespace {

// The code that a process has which dies with its job's last handle.
constexpr std::uint32_t killedOnClose = 0;

// Programs without a script are a mistake of the test; they get this one, after the problem has been noted.
Runtime silentRuntime(int /*startNumber*/) { return Runtime::silent(); }

}  // namespace

Process& SimOs::createProcess(const Start& start, int inheritedFile) {
  Process& process = processes_.create(start.slot, process_.run);
  process.suspended = true;
  if (inheritedFile != 0) {
    openFiles_.addReference(inheritedFile);
    process.openFiles.push_back(inheritedFile);
  }
  starts_.push_back(start);
  starts_.back().pid = process.pid;
  process.start = static_cast<int>(starts_.size()) - 1;
  return process;
}

void SimOs::resume(std::uint32_t pid) {
  Process& process = *processes_.find(pid);
  process.suspended = false;
  if (process.job == 0 || !processes_.job(process.job).killOnClose) problem("a child runs outside its job");
  const Start start = starts_[static_cast<std::size_t>(process.start)];
  Script& script = scripts_[disk_.resolvedKey(start.executable)];
  if (!script.script) {
    problem("no script for " + printable(start.executable));
    script = {start.slot, silentRuntime};
  }
  const Runtime runtime = script.script(++script.starts);
  process.survivesTermination = runtime.lingersMs();
  observer_->starts(start);
  RunningRuntime self(*this, start, script.starts);
  for (const Runtime::Step& step : runtime.steps()) {
    after(step.at, [self, act = step.act]() mutable {
      if (self.alive()) act(self);
    });
  }
}

bool SimOs::runtimeAlive(std::uint32_t pid) {
  const Process* process = processes_.find(pid);
  return process != nullptr && process->alive && !process->terminated;
}

void SimOs::endProcess(std::uint32_t pid, std::uint32_t code) {
  Process* process = processes_.find(pid);
  if (process == nullptr || !process->alive) return;
  processes_.end(*process, code, now());
  for (const int file : process->openFiles) openFiles_.release(file);
  process->openFiles.clear();
  note("process ends", {}, process->name + " " + std::to_string(pid) + " with " + std::to_string(code));
}

void SimOs::terminate(std::uint32_t pid, std::uint32_t code) {
  Process* process = processes_.find(pid);
  if (process == nullptr || !process->alive || process->terminated) return;
  process->terminated = true;
  if (process->survivesTermination == 0) return endProcess(pid, code);
  if (process->survivesTermination == forever) return;
  after(process->survivesTermination, [this, pid, code] { endProcess(pid, code); });
}

void SimOs::terminateJob(int job, std::uint32_t code) {
  for (const std::uint32_t pid : processes_.living()) {
    if (processes_.find(pid)->job == job) terminate(pid, code);
  }
}

std::uint32_t SimOs::startGrandchild(std::uint32_t parent, std::uint64_t livesMs) {
  const Process parentProcess = *processes_.find(parent);
  Process& child = processes_.create("grandchild of " + parentProcess.name, parentProcess.launcherRun);
  const std::uint32_t pid = child.pid;
  child.job = parentProcess.job;
  note("runtime starts", {}, child.name + " " + std::to_string(pid));
  if (livesMs != forever) after(livesMs, [this, pid] { endProcess(pid, 0); });
  return pid;
}

void SimOs::holdByProcess(std::uint32_t pid, const std::wstring& path, Access share, std::uint64_t forMs) {
  if (disk_.find(path) == nullptr) (void)disk_.writeFile(path, "", fileTime());  // opening creates, where it can
  const int file = openFiles_.open(disk_.resolvedKey(path), accessRead, share, "runtime " + std::to_string(pid));
  note("runtime holds", path, file == 0 ? "sharing violation" : "");
  if (file == 0) return;
  processes_.find(pid)->openFiles.push_back(file);
  if (forMs == forever) return;
  after(forMs, [this, pid, file] {
    if (std::erase(processes_.find(pid)->openFiles, file) > 0) openFiles_.release(file);
  });
}

void SimOs::endRuntime(std::uint32_t code) {
  if (starts_.empty() || !runtimeAlive(starts_.back().pid)) return problem("the test ends a runtime, but none runs");
  endProcess(starts_.back().pid, code);
}

int SimOs::livingProcesses() { return static_cast<int>(processes_.living().size()); }

void SimOs::closeHandle(void* handle) noexcept {
  HandleEntry* entry = handles_.find(handle);
  if (entry == nullptr) return problem("a handle is closed that was never given out");
  if (entry->bySystem) {
    entry->bySystem = false;  // once, by its owner on the way out
    return;
  }
  if (!entry->open) return problem("a handle is closed twice: " + HandleTable::describe(*entry));
  log_.countCall(Call::closeHandle);
  handles_.close(*entry);
  if (entry->kind == HandleKind::file) {
    const OpenFile* file = openFiles_.find(entry->object);
    note(Call::closeHandle, file != nullptr ? file->key : std::wstring(), "");
    openFiles_.release(entry->object);
  } else if (entry->kind == HandleKind::job) {
    Job& job = processes_.job(entry->object);
    if (--job.handles == 0 && job.killOnClose) terminateJob(entry->object, killedOnClose);
  }
}

}  // namespace launcher_stub::sim
