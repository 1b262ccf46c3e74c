// The lines that a failing start owes: which call stands behind which of them, and with which number.
#include <algorithm>
#include <array>
#include <string_view>

#include "tests/call_faults/launch.h"

namespace call_faults {
namespace {

struct StartCall {
  std::string_view function;
  std::string_view text;   // how the line of its failure begins
  bool tellsCode = false;  // "...: Win32 error <code>" ends it
  bool alsoForUs = false;  // the first call of a launch contains the launcher itself, and its failure is not told
};

constexpr std::string_view duplicate = "cannot duplicate the launch lease: ";
constexpr std::string_view handleList = "cannot build the handle list: ";
constexpr std::string_view start = "cannot start ";
constexpr std::string_view childJob = "cannot create child job";
constexpr std::string_view codeFollows = ": Win32 error ";

constexpr std::array<StartCall, 9> startCalls = {{
    {"DuplicateHandle", duplicate, true},
    {"InitializeProcThreadAttributeList", handleList, true},
    {"UpdateProcThreadAttribute", handleList, true},
    {"GetEnvironmentStringsW", start, true},
    {"CreateProcessW", start, true},
    {"CreateJobObjectW", childJob, false, true},
    {"SetInformationJobObject", childJob, false, true},
    {"AssignProcessToJobObject", childJob, false, true},
    {"ResumeThread", childJob},
}};

// The line that a start ends with, whatever failed: the path alone.
bool isPathLine(std::string_view line) {
  return line.starts_with(start) && line.find(codeFollows) == std::string_view::npos;
}

bool tellsOfAStart(std::string_view line) {
  return line.starts_with(duplicate) || line.starts_with(handleList) || line.starts_with(childJob) ||
         (line.starts_with(start) && !isPathLine(line));
}

// A kind of launch in which starts fail by themselves has such lines of its own.
bool isOfTheKind(const LaunchKind& kind, std::string_view line) {
  return std::ranges::any_of(kind.lines, [&](const std::string& own) { return line.starts_with(own); });
}

bool isOwed(const StartCall& call, const Fault& fault, std::string_view line) {
  if (!line.starts_with(call.text) || !tellsOfAStart(line)) return false;
  if (!call.tellsCode) return line == call.text;
  return line.ends_with("Win32 error " + std::to_string(fault.refusal.code));
}

// Each refused call is one start that failed, and one line.
void judgeOwedLines(const StartCall& call, const LaunchKind& kind, const Fault& fault, const Outcome& outcome,
                    std::vector<std::string>& findings) {
  std::size_t owed = outcome.refused.size();
  if (call.alsoForUs && fault.index == 1) --owed;
  const auto said = static_cast<std::size_t>(
      std::ranges::count_if(outcome.lines, [&](const std::string& line) { return isOwed(call, fault, line); }));
  const bool othersSayIt = std::ranges::any_of(
      outcome.lines, [&](const std::string& line) { return isOwed(call, fault, line) && isOfTheKind(kind, line); });
  if (said < owed || (said > owed && !othersSayIt)) {
    findings.push_back("the line of a failing " + std::string(call.function) + " is there " + std::to_string(said) +
                       " times and not " + std::to_string(owed));
  }
}

}  // namespace

void judgeStartLines(const LaunchKind& kind, const std::optional<Fault>& fault, const Outcome& outcome,
                     std::vector<std::string>& findings) {
  const auto* call = fault ? std::ranges::find(startCalls, fault->function, &StartCall::function) : startCalls.end();
  const bool isStartCall = call != startCalls.end();
  if (isStartCall) judgeOwedLines(*call, kind, *fault, outcome, findings);
  for (const std::string& line : outcome.lines) {
    if (!tellsOfAStart(line) || isOfTheKind(kind, line) || (isStartCall && isOwed(*call, *fault, line))) continue;
    findings.push_back("this failure has another line than: " + line);
  }
  if (std::ranges::count_if(outcome.lines, tellsOfAStart) != std::ranges::count_if(outcome.lines, isPathLine)) {
    findings.emplace_back("not one line with the path for each start that failed");
  }
}

}  // namespace call_faults
