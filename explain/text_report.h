// The findings for people.
#pragma once

#include <string>

#include "explain/findings.h"

namespace launcher_stub::explain {

// UTF-8, each line ending in one line feed.
std::string textReport(const Findings& findings);

}  // namespace launcher_stub::explain
