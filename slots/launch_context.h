// The context of one run: owned by the launch sequence, worked on by the commit.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "os/child_process.h"
#include "os/lock_file.h"
#include "state/launcher_model.h"

namespace launcher_stub {

struct LaunchContext {
  std::wstring stateRoot;
  std::wstring installDirectory;
  std::wstring seedEntryPath;
  std::vector<std::wstring> arguments;  // forwarded to the runtime
  std::wstring attemptDirectory;        // of the attempt begun last in this iteration

  // Released from the last to the first when the run ends by an exception: the job and with it the runtime's tree
  // before the lease, so that the next launcher never meets a living tree.
  os::LockFile launchLease;
  os::LockFile stateLock;
  os::ChildProcess child;

  LauncherModel model;  // as committed last; between reading and the first commit, the state that was read
  std::uint32_t attemptPhase = kindSeed;  // the committed model's selectedKind
  std::uint64_t firstDuration = healthyWithinMs;
  std::uint64_t secondDuration = soakMs;

  bool startAttempted = false;  // a StartRuntime effect reached the point of creating the child
  bool started = false;         // result of the last child creation
  bool exitRequested = false;
  bool relaunchRequested = false;
  std::int32_t exitCode = 1;

  bool childExitSeen = false;  // the runtime was found to have ended
  std::uint32_t childExitCode = 0;
  bool childExitClean = false;

  bool keepsPrevious = false;  // a valid state was read in this iteration: "boot-v1.previous.json" may be written
  std::uint64_t firstWriteFailureTime = 0;  // monotonic ms, start of the current run of failed writes; 0 = none
  bool errorReported = false;               // the run's one report has been used
};

// Shows `message` (UTF-8) unless this run has already reported an error; then it leaves no trace at all.
void reportOnce(LaunchContext& context, std::string_view message);

// The start was tried and failed; both flags are cleared before every commit that may start.
bool startFailed(const LaunchContext& context);
void clearStartFlags(LaunchContext& context);

// Takes over an observed end of the child.
void recordChildExit(LaunchContext& context, std::uint32_t exitCode, bool clean);

}  // namespace launcher_stub
