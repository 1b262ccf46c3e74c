// The report: a table for a person, a document for programs.
#pragma once

#include <string>

#include "conformance/runs.h"

namespace conformance {

// One line for each duty, and a summary.
std::string tableOf(const Findings& findings);

// docs/conformance.md lists the keys.
std::string jsonOf(const Findings& findings, const Options& options);

// 0: no duty failed; 1: one did.
int exitCodeOf(const Findings& findings);

}  // namespace conformance
