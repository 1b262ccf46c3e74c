// Other processes: starting, watching and ending them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/end_to_end/files.h"
#include "tests/end_to_end/waiting.h"

namespace end_to_end {

struct ProcessStart {
  std::wstring executable;
  std::wstring commandLineTail;  // what follows the program's path, quoted by whoever wrote it
  std::wstring currentDirectory;
  std::wstring errorFile;                   // standard error goes there; empty: to nowhere
  std::optional<std::wstring> environment;  // a block; none: this process's own
  std::vector<void*> inherited;             // more handles for it; they must be inheritable
  std::uint32_t flags = 0;                  // of CreateProcessW, beside those that the above needs
};

// A process that this test started. It is ended with the object, so that a failing test leaves nothing running.
class Process {
 public:
  explicit Process(const ProcessStart& start);
  Process(Process&&) = default;
  Process& operator=(Process&&) = delete;
  ~Process();

  std::uint32_t id() const { return id_; }
  void* handle() const { return handle_.get(); }
  bool isRunning() const;
  bool endsWithin(std::uint32_t limit = patienceMs) const;

  // Of an ended process. Throws for one that has not ended in time.
  std::uint32_t exitCode() const;

  void kill();

 private:
  Handle handle_;
  std::uint32_t id_ = 0;
};

// A process that a program under test started, watched from while it runs: the id of an ended one may be given out
// again. It is ended with the object, should it still run then.
class ProcessWatch {
 public:
  // Throws when there is no such process.
  explicit ProcessWatch(std::uint32_t id);
  ProcessWatch(ProcessWatch&&) = default;
  ProcessWatch& operator=(ProcessWatch&&) = delete;
  ~ProcessWatch();
  bool endsWithin(std::uint32_t limit = patienceMs) const;
  bool isRunning() const { return !endsWithin(0); }

 private:
  Handle handle_;
};

// Ids of the processes that `parent` started and that still exist.
std::vector<std::uint32_t> childrenOf(std::uint32_t parent);

struct Variable {
  std::wstring name;
  std::optional<std::wstring> value;  // none: the variable is to be missing
};

// This process's environment with these variables, in this order and at its front, in the place of those that have
// their names. Not sorted on purpose: whoever passes it on has to sort it.
std::wstring environmentWith(const std::vector<Variable>& variables);

}  // namespace end_to_end
