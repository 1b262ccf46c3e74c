// Scripts for sample runtimes that several tests use.
#pragma once

#include <string>

namespace end_to_end {

// Starts up and stays.
const std::string staysForever = "ready\nsleep 600000\n";

// Starts up, and ends after the launcher has had time to see it: at least one look, 250 ms apart on a quiet machine.
inline std::string startsUpAndEnds(const std::string& how) { return "ready\nsleep 2500\n" + how + "\n"; }

// Ends at once, and the launcher with it: a restart request counts as a normal end, and one that carries another
// attempt's nonce asks for nothing.
inline std::string endsTheRun(int code) { return "restart - foreign-nonce\nexit " + std::to_string(code) + "\n"; }

// Ends at once without having started up: the slot has failed.
const std::string fails = "exit 3\n";

}  // namespace end_to_end
