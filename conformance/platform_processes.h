// Processes: starting the launcher with everything below it under control, and looking at them from outside.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "conformance/platform_files.h"

namespace conformance {

// A process that was seen while it ran. The handle keeps its id from being given out again.
class WatchedProcess {
 public:
  WatchedProcess(Handle handle, std::uint32_t id, std::uint32_t parent, std::wstring image);

  std::uint32_t id() const { return id_; }
  std::uint32_t parent() const { return parent_; }
  const std::wstring& image() const { return image_; }  // full path of its executable
  void* handle() const { return handle_.get(); }

  bool hasEnded() const;
  std::optional<std::uint32_t> exitCode() const;  // none while it runs
  std::uint64_t endTime() const;                  // in the system's units of 100 ns; 0 while it runs
  void terminate(std::uint32_t code) const;

 private:
  Handle handle_;
  std::uint32_t id_;
  std::uint32_t parent_;
  std::wstring image_;
};

// The launcher and all that comes of it, in a job that ends them with this object.
class ProcessTree {
 public:
  // Starts `executable` with its standard error going to `errorFile` and its other standard streams to nowhere.
  // `arguments` follow the executable's quoted path as they are. False: `problem` is a line about it.
  bool start(const std::wstring& executable, const std::wstring& arguments, const std::wstring& directory,
             const std::wstring& errorFile, std::string& problem);

  // Takes notice of processes that are new. Cheap; to be called every few milliseconds.
  void look();

  // In the order in which they were noticed; the first is the one that was started. Those that belong to the system
  // (console hosts, and under Wine whatever comes from the Windows directory) are left out.
  const std::vector<WatchedProcess>& processes() const { return processes_; }

  // How many processes there are just now, also those that belong to the system or are still being created.
  std::size_t count() const;

  void end();

 private:
  bool isKnown(std::uint32_t id) const;

  Handle job_;
  std::vector<WatchedProcess> processes_;
  std::vector<std::uint32_t> ofTheSystem_;
};

std::uint32_t thisProcessId();

// Runs a command to its end, for `limit` milliseconds at most. False: it could not be started, or took longer.
bool runCommand(const std::wstring& commandLine, std::uint32_t limit);

// Asks each visible top-level window of the process to close, as the user does. Returns how many there are.
int closeWindows(std::uint32_t processId);

// The value of a variable in the environment that a process was started with. None: it has no such variable, or the
// system did not let us look.
std::optional<std::wstring> variableOf(const WatchedProcess& process, const std::wstring& name);

// What a process holds under the value of a handle.
enum class HeldHandle {
  unknown,  // the system did not let us look
  nothing,  // or something else
  file,     // the file that was asked for
};
HeldHandle lookAtHandle(const WatchedProcess& process, std::uintptr_t handle, const std::wstring& file);

// The same of a child that inherits from `process` whatever is inheritable. The kit starts one in the process's name;
// it never runs, and has the exit code 0.
HeldHandle lookAtChildOf(const WatchedProcess& process, std::uintptr_t handle, const std::wstring& file);

}  // namespace conformance
