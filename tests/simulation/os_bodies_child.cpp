// The child process in its job, and its environment.
#include <algorithm>
#include <string>

#include "os/child_environment.h"
#include "os/child_process.h"
#include "os/command_line.h"
#include "os/log.h"
#include "os/messages.h"
#include "os/text.h"
#include "tests/simulation/sim_inside.h"
#include "tests/simulation/sim_os.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::os {
namespace {

using sim::Call;
using sim::HandleEntry;
using sim::HandleKind;
using sim::Process;
using sim::SimOs;
namespace win32 = sim::win32;

// Names as the system compares them, for ASCII.
bool nameComesBefore(std::wstring_view a, std::wstring_view b) {
  const auto upper = [](wchar_t c) { return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c; };
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                      [&](wchar_t x, wchar_t y) { return upper(x) < upper(y); });
}

void checkStart(SimOs& sim, const ChildProcess& child, const ChildStart& start) {
  if (sim.launcherHolds(L"state.lock")) sim.problem("a start while state.lock is held");
  const HandleEntry* job = sim.handles().findOpen(child.job.get(), HandleKind::job);
  if (job != nullptr && sim.processes().activeIn(job->object) > 0) {
    sim.problem("a start while the last job still has processes");
  }
  if (sim.handles().findOpen(start.lease, HandleKind::file) == nullptr) sim.problem("a start without an open lease");
}

// The inheritable duplicate of the lease; null with the error.
OwnedHandle duplicateLease(SimOs& sim, void* lease, std::uint32_t& error) {
  error = sim.begin(Call::duplicateLease);
  const HandleEntry* entry = sim.handles().findOpen(lease, HandleKind::file);
  if (error == 0 && entry == nullptr) error = win32::invalidHandle;
  if (error != 0) return nullptr;
  const int file = entry->object;
  sim.openFiles().addReference(file);
  return adoptHandle(sim.makeHandle(HandleKind::file, file));
}

// The error of creating a process from what lies at `executable`, 0 where that works.
std::uint32_t executableError(SimOs& sim, const std::wstring& executable) {
  const sim::Node* node = sim.disk().find(executable);
  if (node == nullptr) return sim.disk().missingError(executable);
  if (node->kind != sim::NodeKind::file) return win32::accessDenied;
  return sim.openFiles().excludes(sim.disk().resolvedKey(executable), sim::accessRead) ? win32::sharingViolation : 0;
}

sim::Start describeStart(SimOs& sim, const ChildStart& start, const std::wstring& block, const OwnedHandle& lease) {
  sim::Start record;
  record.slot = sim.slotOf(start.executable);
  record.executable = start.executable;
  record.arguments = start.arguments;
  record.commandLine = buildCommandLine(start.executable, start.arguments);
  record.environment = splitEnvironmentBlock(block.c_str());
  record.leaseHandle = sim::HandleTable::valueOf(lease.get());
  const int file = sim.handles().findOpen(lease.get(), HandleKind::file)->object;
  record.leaseInherited = sim::lastElementOf(sim.openFiles().find(file)->key) == L"launch.lock";
  record.stateRoot = start.stateRoot;
  record.attemptDirectory = start.attemptDirectory;
  record.time = sim.now();
  record.run = sim.process().run;
  return record;
}

// Creates the suspended process. 0 with the error.
std::uint32_t createSuspended(SimOs& sim, const ChildStart& start, const OwnedHandle& lease, std::uint32_t& error) {
  error = sim.begin(Call::readEnvironment);
  const std::wstring block =
      error != 0 ? std::wstring()
                 : buildChildEnvironment(start.installDirectory, start.stateRoot, start.attemptDirectory,
                                         sim::HandleTable::valueOf(lease.get()));
  if (error == 0) error = sim.begin(Call::createProcess, start.executable);
  if (error == 0) error = executableError(sim, start.executable);
  if (error != 0) return 0;
  const int file = sim.handles().findOpen(lease.get(), HandleKind::file)->object;
  return sim.change([&] { return sim.createProcess(describeStart(sim, start, block, lease), file).pid; });
}

// A kill-on-close job with the process in it; null where a step fails.
OwnedHandle putIntoJob(SimOs& sim, std::uint32_t pid) {
  if (sim.begin(Call::createJob) != 0) return nullptr;
  const int number = sim.processes().createJob();
  sim.processes().job(number).handles = 1;
  OwnedHandle job = adoptHandle(sim.makeHandle(HandleKind::job, number));
  if (sim.begin(Call::limitJob) != 0) return nullptr;
  sim.processes().job(number).killOnClose = true;
  if (sim.begin(Call::assignToJob) != 0) return nullptr;
  sim.processes().find(pid)->job = number;
  return job;
}

bool runInJob(SimOs& sim, ChildProcess& child, std::uint32_t pid) {
  OwnedHandle process = adoptHandle(sim.makeHandle(HandleKind::process, static_cast<int>(pid)));
  OwnedHandle job = putIntoJob(sim, pid);
  if (!job || sim.begin(Call::resumeThread) != 0) {
    sim.endProcess(pid, 1);
    logLine(messages::cannotCreateChildJob);
    return false;
  }
  sim.resume(pid);
  child.job = std::move(job);
  child.process = std::move(process);
  child.exited = false;
  child.endDeadline = 0;
  return true;
}

std::string printableStart(const Process& process) { return process.name + " as " + std::to_string(process.pid); }

}  // namespace

std::wstring buildChildEnvironment(const std::wstring& installDirectory, const std::wstring& stateRoot,
                                   const std::wstring& attemptDirectory, std::uint64_t leaseHandleValue) {
  const std::vector<std::wstring> added = {
      L"QUORVEX_BOOT_STATE_ROOT=" + stateRoot, L"QUORVEX_BOOT_ATTEMPT_DIR=" + attemptDirectory,
      L"QUORVEX_BOOT_LEASE=" + std::to_wstring(leaseHandleValue), L"QUORVEX_BOOT_INSTALL_DIR=" + installDirectory};
  return composeEnvironmentBlock(SimOs::current().environment(), added, nameComesBefore);
}

bool startChild(ChildProcess& child, const ChildStart& start) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  std::uint32_t error = sim.begin(Call::startChild, start.executable);
  if (sim.launcherDead()) return false;
  checkStart(sim, child, start);

  OwnedHandle lease = duplicateLease(sim, start.lease, error);
  if (!lease) {
    logLine(failedAction(messages::cannotDuplicateLease, error));
    return false;
  }
  error = sim.begin(Call::buildHandleList);
  if (error != 0) {
    logLine(failedAction(messages::cannotBuildHandleList, error));
    return false;
  }
  const std::uint32_t pid = createSuspended(sim, start, lease, error);
  lease.reset();
  if (pid == 0) {
    logLine(failedAction(std::string(messages::cannotStart) + toUtf8(start.executable), error));
    return false;
  }
  const bool started = runInJob(sim, child, pid);
  sim.note(Call::startChild, start.executable, printableStart(*sim.processes().find(pid)));
  return started;
}

bool pollExit(ChildProcess& child, std::uint32_t& exitCode, bool& clean) {
  if (!child.process || child.exited) return false;
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  const std::uint32_t error = sim.begin(Call::pollExit);
  const HandleEntry* entry = sim.handles().findOpen(child.process.get(), HandleKind::process);
  if (entry == nullptr && !sim.launcherDead()) sim.problem("a wait on what is not an open process handle");
  if (error != 0 || entry == nullptr) {
    sim.note(Call::pollExit, {}, "failed");
    child.waitFailed = true;
    return false;
  }
  const Process& process = *sim.processes().find(static_cast<std::uint32_t>(entry->object));
  sim.observer().polls(process);
  sim.note(Call::pollExit, {}, process.alive ? "running" : "ended");
  if (process.alive) return false;
  exitCode = sim.begin(Call::readExitCode) != 0 ? 1 : process.exitCode;
  clean = exitCode == 0;
  child.exited = true;
  return true;
}

namespace {

// How many processes the job holds; -1 where the query fails.
int queryActive(SimOs& sim, const ChildProcess& child) {
  const std::uint32_t error = sim.begin(Call::queryJob);
  const HandleEntry* entry = sim.handles().findOpen(child.job.get(), HandleKind::job);
  if (entry == nullptr && !sim.launcherDead()) sim.problem("a query of what is not an open job handle");
  const int active = error != 0 || entry == nullptr ? -1 : sim.processes().activeIn(entry->object);
  sim.note(Call::queryJob, {}, std::to_string(active));
  return active;
}

bool terminateOnce(SimOs& sim, const ChildProcess& child) {
  const std::uint32_t error = sim.begin(Call::terminateJob);
  const HandleEntry* entry = sim.handles().findOpen(child.job.get(), HandleKind::job);
  sim.note(Call::terminateJob, {}, error == 0 ? "ok" : "error " + std::to_string(error));
  if (error != 0 || entry == nullptr) return false;
  sim.terminateJob(entry->object, 1);
  return true;
}

}  // namespace

bool jobHasActiveProcesses(ChildProcess& child) {
  if (!child.job) return false;
  const sim::InsidePlatform inside;
  const int active = queryActive(SimOs::current(), child);
  if (active < 0) child.waitFailed = true;
  return active != 0;
}

bool endProcessTree(ChildProcess& child) {
  if (!child.job) return true;
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  (void)sim.begin(Call::endProcessTree);  // its steps are what can fail
  if (child.endDeadline == 0) child.endDeadline = sim.now() + endTreeLimitMs;
  bool terminated = terminateOnce(sim, child);
  while (terminated) {
    const int active = queryActive(sim, child);
    if (active == 0) return true;
    if (active < 0 || sim.now() >= child.endDeadline) break;
    sim.advance(std::min<std::uint64_t>(child.endDeadline - sim.now(), endTreePauseMs));
    terminated = terminateOnce(sim, child);
  }
  child.waitFailed = true;
  return false;
}

void resetChild(ChildProcess& child) {
  child.process.reset();
  child.job.reset();
  child.endDeadline = 0;
}

}  // namespace launcher_stub::os
