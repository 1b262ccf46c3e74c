// The runs in which the duties are judged. Each has a temporary installation of its own.
#pragma once

#include <map>
#include <string>

#include "conformance/duty.h"
#include "conformance/options.h"

namespace conformance {

using Findings = std::map<Duty, Finding>;

// Judges the duties that the options ask for. False: the kit could not do its own part, and `problem` says why.
bool judge(const Options& options, Findings& findings, std::string& problem);

// The three runs; each is only needed for the duties named.
bool runPlainly(const Options& options, Findings& findings, std::string& problem);         // all the others
bool runWithHeldRecord(const Options& options, Findings& findings, std::string& problem);  // heldRecord
bool runAsCandidate(const Options& options, Findings& findings, std::string& problem);     // healthy, update

}  // namespace conformance
