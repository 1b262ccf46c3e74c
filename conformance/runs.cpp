#include "conformance/runs.h"

#include <algorithm>

namespace conformance {
namespace {

bool asksForAny(const Options& options, std::initializer_list<Duty> duties) {
  return std::any_of(duties.begin(), duties.end(), [&](Duty duty) { return options.duties.contains(duty); });
}

}  // namespace

bool judge(const Options& options, Findings& findings, std::string& problem) {
  Findings all;
  if (asksForAny(options, {Duty::starts, Duty::ready, Duty::slotAndNonce, Duty::lease, Duty::stateFiles,
                           Duty::endsWhenAsked, Duty::exitCode, Duty::noProcessLeft}) &&
      !runPlainly(options, all, problem)) {
    return false;
  }
  // A runtime that does not start is not tried again and again.
  const auto starts = all.find(Duty::starts);
  const bool failedToStart = starts != all.end() && starts->second.verdict == Verdict::failed;
  if (!failedToStart) {
    if (asksForAny(options, {Duty::heldRecord}) && !runWithHeldRecord(options, all, problem)) return false;
    if (asksForAny(options, {Duty::healthy, Duty::update}) && !runAsCandidate(options, all, problem)) return false;
  }
  for (const Duty duty : options.duties) {
    const auto found = all.find(duty);
    findings[duty] = found != all.end() ? found->second : Finding{Verdict::notJudged, "the runtime does not start"};
  }
  return true;
}

}  // namespace conformance
