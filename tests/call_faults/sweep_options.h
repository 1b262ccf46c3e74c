// What of the sweep is wanted, from the command line.
#pragma once

#include <string>
#include <string_view>

#include "tests/call_faults/watch.h"

namespace call_faults {

// Takes "--all" and "--only TEXT" (faults whose description contains the text) out of the arguments.
void readOptions(int& count, wchar_t** arguments);

// Leaves few variables: the launcher sorts them for the runtime, and each comparison is one more call to fail.
void shrinkEnvironment();

// Whether this fault is wanted. `isFirst`: with the first error of its function.
bool isChosen(const std::string& kind, const Fault& fault, bool isFirst);

// Tells the watchdog what is tried: a launch that hangs for a minute of real time ends the process with its name.
void nowTrying(const std::string& kind, const Fault& fault);

// Refuses the launcher's way to the random source, which it goes once in a process, before the first test.
void addWhatComesBeforeAllLaunches();

// The one line of what was tried, at the end.
void printFigures();

}  // namespace call_faults
