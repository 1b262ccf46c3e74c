// The runtime as a child process in a job object of its own, so that its whole tree can be ended and dies with us.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "os/handle.h"

namespace launcher_stub::os {

constexpr std::uint64_t endTreeLimitMs = 30'000;  // from the first try to end a process tree
constexpr std::uint32_t endTreePauseMs = 500;     // at most, between two looks at the job

// The holder of the running child; owns both handles. Closing the job ends whatever still runs in it.
struct ChildProcess {
  bool waitFailed = false;        // a wait on the process or a query of the job failed; never cleared here
  bool exited = false;            // the exit has been observed; later polls report nothing
  std::uint64_t endDeadline = 0;  // monotonic ms until which the tree may take to end; 0 = not set
  OwnedHandle process;
  OwnedHandle job;
};

// What a start needs to know. All borrowed for the call.
struct ChildStart {
  const std::wstring& executable;
  const std::vector<std::wstring>& arguments;
  const std::wstring& installDirectory;
  const std::wstring& stateRoot;
  const std::wstring& attemptDirectory;
  void* lease;  // the open handle of launch.lock; the child inherits a duplicate and nothing else
};

// Starts `start.executable` inside a new job; it never runs outside of it. True: `child` holds process and job.
// False: one diagnostic line has said why, nothing was left running, and `child` is as it was.
bool startChild(ChildProcess& child, const ChildStart& start);

// Looks, without waiting, whether the child has ended. True exactly once, with its exit code (1 if it cannot be read)
// and whether that is 0. A failing wait sets `waitFailed` and reports false.
bool pollExit(ChildProcess& child, std::uint32_t& exitCode, bool& clean);

// True while a process is left in the job. A failing query sets `waitFailed` and counts as true.
bool jobHasActiveProcesses(ChildProcess& child);

// Ends all processes of the job and waits until none is left, for at most 30 s counted from the first such call for
// this child. False: some may live on, and `waitFailed` is set. Without a job there is nothing to end: true.
bool endProcessTree(ChildProcess& child);

// Closes both handles and forgets the deadline.
void resetChild(ChildProcess& child);

}  // namespace launcher_stub::os
