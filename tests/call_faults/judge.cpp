// What every launch owes, whatever call of it fails.
#include <algorithm>

#include "tests/call_faults/catalogue.h"
#include "tests/call_faults/launch.h"
#include "tests/call_faults/state_steps.h"

namespace call_faults {
namespace {

using Findings = std::vector<std::string>;

bool isOf(const std::optional<Fault>& fault, std::initializer_list<std::string_view> functions) {
  return fault && std::find(functions.begin(), functions.end(), fault->function) != functions.end();
}

// What is said may be lost, or torn, by the fault itself.
bool linesMayBeLost(const std::optional<Fault>& fault) { return isOf(fault, {"GetStdHandle", "WriteFile"}); }

bool says(const Outcome& outcome, std::string_view text) {
  return std::find(outcome.lines.begin(), outcome.lines.end(), text) != outcome.lines.end();
}

void judgeTexts(const std::optional<Fault>& fault, const Outcome& outcome, Findings& findings) {
  // A text that cannot be converted is lost: an empty box, a line without the path.
  const bool textMayBeLost = isOf(fault, {"MultiByteToWideChar", "WideCharToMultiByte"});
  for (const std::string& line : outcome.lines) {
    if (isKnownLine(line)) continue;
    const bool pathIsLost = textMayBeLost && line.starts_with("cannot start ");
    const bool messageIsLost = textMayBeLost && line == "cannot prune old attempt: ";
    if (!linesMayBeLost(fault) && !pathIsLost && !messageIsLost) findings.push_back("an unknown line: " + line);
  }
  if (outcome.boxes.size() > 1) findings.push_back("more than one box: " + join(outcome.boxes));
  for (const std::string& box : outcome.boxes) {
    if (box.empty() && textMayBeLost) continue;
    if (!isKnownBox(box)) findings.push_back("an unknown box: " + box);
    if (boxMeansFailure(box) && outcome.exitCode != 1) findings.push_back("not exit code 1 after the box " + box);
    if (!says(outcome, box) && !linesMayBeLost(fault)) findings.push_back("a box without its line: " + box);
  }
}

bool leaseWasRefused(const Outcome& outcome) {
  return std::ranges::any_of(outcome.refused, [](const auto& path) { return path.ends_with(L"\\launch.lock"); });
}

// The code of a run that ended without a box.
bool isDefinedCode(const LaunchKind& kind, const std::optional<Fault>& fault, const Outcome& outcome) {
  const int code = *outcome.exitCode;
  if (outcome.lastRuntimesCode) {
    if (code == static_cast<int>(*outcome.lastRuntimesCode)) return true;
    if (code == 1 && isOf(fault, {"GetExitCodeProcess"})) return true;
  }
  if (code == 1 && (says(outcome, "state lock timeout") || linesMayBeLost(fault))) return true;
  const bool leaseIsHeld = kind.circumstances.leaseHeldMs > 0 ||
                           (isOf(fault, {"CreateFileW"}) && fault->refusal.code == 32 && leaseWasRefused(outcome));
  return code == 0 && leaseIsHeld && outcome.started.empty();
}

// Two things end a run so: there is nothing random to be had, or no thread for the box, whose line has been said.
void judgeException(const std::optional<Fault>& fault, const Outcome& outcome, Findings& findings) {
  if (isOf(fault, {"SystemFunction036", "GetModuleHandleW", "GetProcAddress"})) return;
  if (!isOf(fault, {"CreateThread"})) {
    findings.emplace_back("it ends by an exception");
  } else if (outcome.lines.empty() || !isKnownBox(outcome.lines.back())) {
    findings.emplace_back("it ends by an exception without the line of the box");
  }
}

void judgeEnd(const LaunchKind& kind, const std::optional<Fault>& fault, const Outcome& outcome, Findings& findings) {
  if (outcome.endless) {
    findings.emplace_back("it does not end");
    return;
  }
  if (!outcome.exitCode) return judgeException(fault, outcome, findings);
  if (outcome.boxes.empty() && !isDefinedCode(kind, fault, outcome)) {
    findings.push_back("exit code " + std::to_string(*outcome.exitCode) + " has no reason");
  }
  if (!outcome.boxes.empty() && *outcome.exitCode != 1 &&
      (!outcome.lastRuntimesCode || *outcome.exitCode != static_cast<int>(*outcome.lastRuntimesCode))) {
    findings.push_back("exit code " + std::to_string(*outcome.exitCode) + " after a box");
  }
}

void judgeDisk(const World& world, const LaunchKind& kind, const std::optional<Fault>& fault, Findings& findings) {
  const Documents found = world.documents();
  const std::string wrongState = judgeStep(kind, found.state, kind.state);
  const std::string wrongCopy = judgeStep(kind, found.previous, kind.previous);
  if (!wrongState.empty()) findings.push_back("the state " + wrongState + ": " + found.state.value_or("(gone)"));
  if (!wrongCopy.empty()) findings.push_back("the copy " + wrongCopy + ": " + found.previous.value_or("(gone)"));
  if (found.pending && *found.pending != kind.pending) findings.push_back("the request is changed: " + *found.pending);
  if (!found.temporaries.empty() && !isOf(fault, {"DeleteFileW"})) findings.emplace_back("a temporary file is left");
  if (!world.othersUntouched()) findings.emplace_back("what lies behind a link is changed");
}

}  // namespace

std::vector<std::string> judge(const World& world, const LaunchKind& kind, const std::optional<Fault>& fault,
                               const Outcome& outcome) {
  Findings findings = outcome.findings;
  judgeTexts(fault, outcome, findings);
  judgeEnd(kind, fault, outcome, findings);
  judgeDisk(world, kind, fault, findings);
  // What is lost on the way to the line, or of the launcher's own path, is no matter of a start.
  const bool isReadable =
      !isOf(fault, {"GetStdHandle", "WriteFile", "MultiByteToWideChar", "WideCharToMultiByte", "GetModuleFileNameW"});
  if (isReadable) judgeStartLines(kind, fault, outcome, findings);
  return findings;
}

std::vector<std::string> judgeNext(const LaunchKind& kind, const Outcome& outcome) {
  Findings findings = outcome.findings;
  judgeTexts(std::nullopt, outcome, findings);
  judgeEnd(kind, std::nullopt, outcome, findings);
  judgeStartLines(kind, std::nullopt, outcome, findings);
  if (kind.startsAfterwards && outcome.started.empty()) findings.emplace_back("the next launch starts nothing");
  if (kind.startsAfterwards && !outcome.boxes.empty()) findings.push_back("a box: " + join(outcome.boxes));
  for (std::string& finding : findings) finding = "next launch: " + finding;
  return findings;
}

}  // namespace call_faults
