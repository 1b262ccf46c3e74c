// What a runtime owes the launcher, one name each.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace conformance {

enum class Duty {
  starts,
  ready,
  slotAndNonce,
  heldRecord,
  lease,
  stateFiles,
  endsWhenAsked,
  exitCode,
  noProcessLeft,
  healthy,
  update,
};

struct DutyText {
  Duty duty;
  std::string_view name;   // on the command line and in the report
  std::string_view means;  // for a person
};

// All of them, in the order of the report.
constexpr std::array<DutyText, 11> allDuties = {{
    {Duty::starts, "starts", "is started by the launcher and does not end before it is ready"},
    {Duty::ready, "ready", "writes a whole ready-v1 in time"},
    {Duty::slotAndNonce, "slot-and-nonce", "names its slot and the nonce of this start in ready-v1"},
    {Duty::heldRecord, "held-record", "becomes ready though boot-v1.json is held by another program for a second"},
    {Duty::lease, "lease", "keeps the lease from its children"},
    {Duty::stateFiles, "state-files", "keeps no file of the launcher's open"},
    {Duty::endsWhenAsked, "ends-when-asked", "ends when it is asked to"},
    {Duty::exitCode, "exit-code", "ends so that the launcher ends with the same exit code"},
    {Duty::noProcessLeft, "no-process-left", "leaves no process behind when it ends"},
    {Duty::healthy, "healthy", "writes a right healthy-v1 in time when it is a candidate"},
    {Duty::update, "update", "runs on until it is promoted: an update from itself to itself"},
}};

constexpr std::optional<Duty> dutyNamed(std::string_view name) {
  for (const DutyText& text : allDuties) {
    if (text.name == name) return text.duty;
  }
  return std::nullopt;
}

enum class Verdict {
  passed,
  warned,  // counts as passed
  failed,
  notJudged,
};

struct Finding {
  Verdict verdict = Verdict::notJudged;
  std::string detail;  // one line: what was seen
};

}  // namespace conformance
