// What every launch owes, whatever call of it fails.
#include <algorithm>

#include "state/boot_state.h"
#include "tests/call_faults/catalogue.h"
#include "tests/call_faults/launch.h"

namespace call_faults {
namespace {

using launcher_stub::BootState;
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

// The code of a run that ended without a box.
bool isDefinedCode(const LaunchKind& kind, const std::optional<Fault>& fault, const Outcome& outcome) {
  const int code = *outcome.exitCode;
  if (outcome.lastRuntimesCode) {
    if (code == static_cast<int>(*outcome.lastRuntimesCode)) return true;
    if (code == 1 && isOf(fault, {"GetExitCodeProcess"})) return true;
  }
  if (code == 1 && (says(outcome, "state lock timeout") || linesMayBeLost(fault))) return true;
  const bool leaseIsHeld =
      kind.circumstances.leaseHeldMs > 0 || (isOf(fault, {"CreateFileW"}) && fault->refusal.code == 32);
  return code == 0 && leaseIsHeld && outcome.started.empty();
}

void judgeEnd(const LaunchKind& kind, const std::optional<Fault>& fault, const Outcome& outcome, Findings& findings) {
  if (outcome.endless) {
    findings.emplace_back("it does not end");
    return;
  }
  if (!outcome.exitCode) {
    if (!isOf(fault, {"SystemFunction036"})) findings.emplace_back("it ends by an exception");
    return;
  }
  if (outcome.boxes.empty() && !isDefinedCode(kind, fault, outcome)) {
    findings.push_back("exit code " + std::to_string(*outcome.exitCode) + " has no reason");
  }
  if (!outcome.boxes.empty() && *outcome.exitCode != 1 &&
      (!outcome.lastRuntimesCode || *outcome.exitCode != static_cast<int>(*outcome.lastRuntimesCode))) {
    findings.push_back("exit code " + std::to_string(*outcome.exitCode) + " after a box");
  }
}

// The first document, or a whole one of the launcher's own that is no older.
void judgeState(const char* which, const std::optional<std::string>& found, const std::string& before,
                std::uint64_t generationBefore, Findings& findings) {
  if (found.value_or("") == before) return;
  BootState state;
  std::string error;
  if (!found || !launcher_stub::readBootState(*found, state, error)) {
    return findings.push_back(std::string(which) + " is neither old nor new: " + found.value_or("(gone)"));
  }
  if (launcher_stub::writeBootState(state) != *found) findings.push_back(std::string(which) + " is not whole");
  if (state.generation < generationBefore) findings.push_back(std::string(which) + " is older than before");
}

std::uint64_t generationOf(const std::string& document) {
  BootState state;
  std::string error;
  return launcher_stub::readBootState(document, state, error) ? state.generation : 0;
}

void judgeDisk(const World& world, const LaunchKind& kind, const std::optional<Fault>& fault, Findings& findings) {
  const Documents found = world.documents();
  judgeState("the state", found.state, kind.state, generationOf(kind.state), findings);
  judgeState("the copy", found.previous, kind.previous, generationOf(kind.previous), findings);
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
  return findings;
}

std::vector<std::string> judgeNext(const LaunchKind& kind, const Outcome& outcome) {
  Findings findings = outcome.findings;
  judgeTexts(std::nullopt, outcome, findings);
  judgeEnd(kind, std::nullopt, outcome, findings);
  if (kind.startsAfterwards && outcome.started.empty()) findings.emplace_back("the next launch starts nothing");
  if (kind.startsAfterwards && !outcome.boxes.empty()) findings.push_back("a box: " + join(outcome.boxes));
  for (std::string& finding : findings) finding = "next launch: " + finding;
  return findings;
}

}  // namespace call_faults
