// The findings for programs. docs/explain.md describes the members.
#pragma once

#include <string>

#include "explain/findings.h"

namespace launcher_stub::explain {

// One JSON document with a line feed at its end. UTF-8; members in the order of their keys.
std::string jsonReport(const Findings& findings);

}  // namespace launcher_stub::explain
