// One launch: the launcher started in a temporary installation, watched from outside, and ended.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "conformance/installation.h"
#include "conformance/platform_processes.h"
#include "state/attempt_record.h"

namespace conformance {

// A marker as the launcher would read it.
struct Marker {
  enum class Form {
    missing,
    unreadable,  // there, and cannot be opened
    malformed,   // no whole document of its kind
    foreign,     // names another slot or nonce
    right,
  };
  Form form = Form::missing;
  std::string detail;  // of the wrong forms: what is wrong
};

// How the runtime came to its end.
enum class Ending {
  runs,
  byItself,
  asked,       // it was asked to end, and did
  terminated,  // the kit had to
};

class Launch {
 public:
  Launch(const Installation& installation, const Options& options);
  ~Launch();  // ends all that still runs
  Launch(const Launch&) = delete;
  Launch& operator=(const Launch&) = delete;
  Launch(Launch&&) = delete;
  Launch& operator=(Launch&&) = delete;

  bool start(std::string& problem);

  // Looks every few milliseconds until `happened`. False: not within `limit` milliseconds.
  bool waitUntil(const std::function<bool()>& happened, std::uint64_t limit);

  // Takes notice of new processes and attempts.
  void look();

  std::uint64_t age() const { return milliseconds() - begin_; }  // since the launcher's start, ms

  const WatchedProcess& launcher() const { return tree_.processes().front(); }
  // The process that the launcher started; null as long as none was seen. One that lives for a few milliseconds only
  // may never be.
  const WatchedProcess* runtime() const;
  // All processes but the launcher and the runtime.
  std::vector<const WatchedProcess*> others() const;
  bool hasStartedAnything() const { return tree_.count() > 1; }  // right now, and with certainty
  bool runtimeHasEnded() const { return runtime() != nullptr && runtime()->hasEnded(); }

  // Records of the starts so far, in the order in which they were noticed.
  const std::vector<launcher_stub::AttemptRecord>& attempts() const { return attempts_; }
  // The directory of the first start; empty before.
  std::wstring attemptDirectory() const;
  Marker marker(const std::wstring& name) const;

  // The launcher has given up, or has ended, or has started something again.
  bool isOver();
  std::vector<std::string> lines() const;  // what it printed
  bool printed(std::string_view start) const;

  // Brings the runtime to its end: asks it to, and terminates it where that does nothing.
  Ending endRuntime();
  int windowsAsked() const { return windowsAsked_; }

 private:
  void lookAtAttempts();
  bool askRuntime();
  std::wstring closeCommand() const;

  const Installation& installation_;
  const Options& options_;
  ProcessTree tree_;
  std::vector<launcher_stub::AttemptRecord> attempts_;
  std::uint64_t begin_ = 0;
  int windowsAsked_ = 0;
};

// The exit code that the kit gives to a runtime that it has to terminate.
constexpr std::uint32_t terminatedCode = 4242;

}  // namespace conformance
