// The seed is started with no state at all, watched until it is ready, and ended.

#include <algorithm>
#include <charconv>

#include "conformance/launch.h"
#include "conformance/runs.h"

namespace conformance {
namespace {

constexpr std::uint32_t startLimitMs = 30'000;    // for the launcher to start anything at all
constexpr std::uint32_t seenByLauncherMs = 1000;  // the launcher looks for markers every 250 ms
constexpr std::uint32_t launcherEndsMs = 45'000;  // it takes up to 30 s to end a process tree
constexpr std::uint32_t survivorsMs = 2000;       // for processes to be gone after the launcher
constexpr std::uint32_t stateFileMs = 3000;       // a file of the launcher's that is held for longer is held for good
constexpr std::uint32_t endedByLauncherCode = 1;  // of processes that the launcher ends with its job

std::string inMilliseconds(std::uint64_t duration) { return std::to_string(duration) + " ms"; }

std::string named(const WatchedProcess& process) {
  const std::string image = toUtf8(process.image());
  return image.substr(image.find_last_of('\\') + 1) + " (" + std::to_string(process.id()) + ")";
}

std::string codeText(const std::optional<std::uint32_t>& code) {
  return code ? "exit code " + std::to_string(*code) : "an exit code that could not be read";
}

// What was seen of the start.
struct Start {
  Marker ready;
  std::uint64_t readyAfter = 0;
  bool endedEarly = false;  // before it was ready
};

Start watchStart(Launch& launch, const Options& options) {
  Start start;
  (void)launch.waitUntil([&] { return !launch.attempts().empty() || launch.isOver(); }, startLimitMs);
  const std::uint64_t begin = milliseconds();
  (void)launch.waitUntil(
      [&] {
        start.ready = launch.marker(L"ready-v1");
        start.endedEarly = launch.runtimeHasEnded() || launch.isOver();
        return start.ready.form == Marker::Form::right || start.ready.form == Marker::Form::foreign || start.endedEarly;
      },
      options.readyWithin);
  start.readyAfter = milliseconds() - begin;
  // A runtime may well be ready and at its end between two looks.
  if (start.endedEarly) start.ready = launch.marker(L"ready-v1");
  if (start.ready.form == Marker::Form::right || start.ready.form == Marker::Form::foreign) start.endedEarly = false;
  return start;
}

Finding judgeStarts(const Launch& launch, const Start& start) {
  for (const std::string& line : launch.lines()) {
    if (line.starts_with("cannot ")) return {Verdict::failed, "the launcher says: " + line};
  }
  if (launch.attempts().empty()) return {Verdict::failed, "the launcher started nothing"};
  if (!start.endedEarly) return {Verdict::passed, "started from the slot " + launch.attempts().front().slot};
  const WatchedProcess* runtime = launch.runtime();
  return {Verdict::failed,
          "ended before it was ready" + (runtime != nullptr ? ", with " + codeText(runtime->exitCode())
                                                            : std::string(", sooner than it could be looked at"))};
}

Finding judgeReady(const Start& start, const Options& options) {
  switch (start.ready.form) {
    case Marker::Form::missing:
      return {Verdict::failed, "no ready-v1 after " + inMilliseconds(options.readyWithin)};
    case Marker::Form::unreadable:
    case Marker::Form::malformed:
      return {Verdict::failed, start.ready.detail};
    case Marker::Form::foreign:
    case Marker::Form::right:
      break;
  }
  return {Verdict::passed, "after " + inMilliseconds(start.readyAfter)};
}

Finding judgeSlotAndNonce(const Launch& launch, const Start& start) {
  if (start.ready.form == Marker::Form::foreign) return {Verdict::failed, start.ready.detail};
  if (start.ready.form != Marker::Form::right) return {Verdict::notJudged, "there is no whole ready-v1"};
  return {Verdict::passed, launch.attempts().front().slot + ", " + launch.attempts().front().nonce};
}

// --- While it runs ---

bool readHandleValue(const std::wstring& text, std::uintptr_t& value) {
  const std::string digits = toUtf8(text);
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return error == std::errc() && end == digits.data() + digits.size();
}

Finding judgeLease(const Launch& launch, const Installation& installation) {
  const WatchedProcess* runtime = launch.runtime();
  if (runtime == nullptr || runtime->hasEnded()) return {Verdict::notJudged, "the runtime had ended already"};
  const std::optional<std::wstring> text = variableOf(*runtime, L"QUORVEX_BOOT_LEASE");
  std::uintptr_t lease = 0;
  if (!text || !readHandleValue(*text, lease)) {
    return {Verdict::notJudged, "the runtime's environment could not be read from outside"};
  }
  const std::wstring file = installation.stateRoot() + L"\\launch.lock";
  for (const WatchedProcess* other : launch.others()) {
    if (lookAtHandle(*other, lease, file) == HeldHandle::file) {
      return {Verdict::failed, "a process that it started has the lease: " + named(*other)};
    }
  }
  if (lookAtHandle(*runtime, lease, file) == HeldHandle::nothing) {
    return {Verdict::warned, "the runtime has closed the lease; it should keep it until its end"};
  }
  switch (lookAtChildOf(*runtime, lease, file)) {
    case HeldHandle::file:
      return {Verdict::failed, "the lease is still inheritable"};
    case HeldHandle::nothing:
      return {Verdict::passed, "the lease is not inheritable"};
    case HeldHandle::unknown:
      break;
  }
  return {Verdict::notJudged, "the system does not tell what a child of the runtime would inherit"};
}

Finding judgeStateFiles(Launch& launch, const Installation& installation) {
  if (launch.runtime() == nullptr || launch.runtime()->hasEnded()) {
    return {Verdict::notJudged, "the runtime had ended already"};
  }
  for (const wchar_t* name : {L"boot-v1.json", L"boot-v1.previous.json", L"pending-v1.json", L"state.lock"}) {
    const std::wstring path = installation.stateRoot() + L"\\" + name;
    const auto isFree = [&] { return !isPresent(path) || openForNobodyElse(path) != nullptr; };
    if (!launch.waitUntil(isFree, stateFileMs)) {
      return {Verdict::failed, toUtf8(name) + " was held for more than " + inMilliseconds(stateFileMs)};
    }
  }
  return {Verdict::passed, "none was held"};
}

// --- How it ends ---

Finding judgeEnding(const Launch& launch, const Options& options, Ending ending, std::uint64_t duration) {
  switch (ending) {
    case Ending::asked:
      return {Verdict::passed,
              "after " + inMilliseconds(duration) + ", with " + codeText(launch.runtime()->exitCode())};
    case Ending::byItself:
      return {Verdict::notJudged, "it ended by itself, with " + codeText(launch.runtime()->exitCode())};
    case Ending::terminated:
      if (options.closeCommand.empty() && launch.windowsAsked() == 0) {
        return {Verdict::notJudged, "it has no visible window, and there is no --close-command; it was terminated"};
      }
      return {Verdict::failed, "it still ran " + inMilliseconds(duration) + " after it was asked to end"};
    case Ending::runs:
      break;
  }
  return {Verdict::notJudged, "its process was not seen"};
}

Finding judgeExitCode(const Launch& launch, const Start& start) {
  if (start.ready.form != Marker::Form::right) {
    return {Verdict::notJudged, "it was never ready, and then its end counts as a failure"};
  }
  if (launch.attempts().size() > 1) {
    return {Verdict::failed, "the launcher started a runtime again; restart-v1.json asks for that"};
  }
  const std::optional<std::uint32_t> own = launch.runtime() == nullptr ? std::nullopt : launch.runtime()->exitCode();
  if (!own) return {Verdict::notJudged, "the runtime's own exit code could not be read"};
  const std::optional<std::uint32_t> launchers = launch.launcher().exitCode();
  if (!launchers) return {Verdict::failed, "the launcher had not ended " + inMilliseconds(launcherEndsMs) + " later"};
  if (*own == *launchers) return {Verdict::passed, "both ended with " + std::to_string(*own)};
  return {Verdict::failed,
          "the runtime ended with " + std::to_string(*own) + ", the launcher with " + std::to_string(*launchers)};
}

// All processes that `belongs` picks, for a report.
template <typename Belongs>
std::string listed(const std::vector<const WatchedProcess*>& processes, const Belongs& belongs) {
  std::string names;
  for (const WatchedProcess* process : processes) {
    if (belongs(*process)) names += (names.empty() ? "" : ", ") + named(*process);
  }
  return names;
}

Finding judgeNoProcessLeft(Launch& launch, Ending ending) {
  if (!launch.runtimeHasEnded()) return {Verdict::notJudged, "its end was not seen"};
  const auto survives = [](const WatchedProcess& process) { return !process.hasEnded(); };
  (void)launch.waitUntil([&] { return listed(launch.others(), survives).empty(); }, survivorsMs);
  const std::string survivors = listed(launch.others(), survives);
  if (!survivors.empty()) return {Verdict::failed, "still there after the launcher: " + survivors};
  if (ending == Ending::terminated) return {Verdict::passed, "nothing; it was terminated, so it could not clean up"};
  const std::uint64_t end = launch.runtime()->endTime();
  const std::string ended = listed(launch.others(), [&](const WatchedProcess& process) {
    return process.endTime() >= end && process.exitCode() == endedByLauncherCode;
  });
  if (ended.empty()) return {Verdict::passed, "nothing was left"};
  return {Verdict::warned, "the launcher had to end what was left: " + ended};
}

void judgeEnd(Launch& launch, const Options& options, const Start& start, Findings& findings) {
  const std::uint64_t begin = milliseconds();
  const Ending ending = launch.endRuntime();
  findings[Duty::endsWhenAsked] = judgeEnding(launch, options, ending, milliseconds() - begin);
  (void)launch.waitUntil([&] { return launch.isOver(); }, ending == Ending::runs ? survivorsMs : launcherEndsMs);
  findings[Duty::exitCode] = judgeExitCode(launch, start);
  if (launch.attempts().size() > 1) {
    findings[Duty::noProcessLeft] = {Verdict::notJudged, "the launcher started a runtime again"};
  } else {
    findings[Duty::noProcessLeft] = judgeNoProcessLeft(launch, ending);
  }
}

}  // namespace

bool runPlainly(const Options& options, Findings& findings, std::string& problem) {
  Installation installation(options);
  Launch launch(installation, options);
  if (!installation.layOut(problem) || !launch.start(problem)) return false;

  const Start start = watchStart(launch, options);
  findings[Duty::starts] = judgeStarts(launch, start);
  if (findings[Duty::starts].verdict != Verdict::passed) return true;
  findings[Duty::ready] = judgeReady(start, options);
  findings[Duty::slotAndNonce] = judgeSlotAndNonce(launch, start);
  if (start.ready.form == Marker::Form::right) {
    (void)launch.waitUntil([&] { return launch.runtimeHasEnded(); }, seenByLauncherMs);
  }
  launch.look();
  findings[Duty::lease] = judgeLease(launch, installation);
  findings[Duty::stateFiles] = judgeStateFiles(launch, installation);
  const bool endCounts = options.duties.contains(Duty::endsWhenAsked) || options.duties.contains(Duty::exitCode) ||
                         options.duties.contains(Duty::noProcessLeft);
  if (endCounts) judgeEnd(launch, options, start, findings);
  return true;
}

}  // namespace conformance
