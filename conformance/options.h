// The command line.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "conformance/duty.h"

namespace conformance {

struct Options {
  std::wstring launcher;               // full path of the launcher's executable
  std::wstring seed;                   // full path of the directory that holds entry-v1.exe and all that belongs to it
  std::wstring arguments;              // for the runtime, as they are to stand in the launcher's command line
  std::wstring closeCommand;           // makes the runtime end; empty: its windows are asked to close
  std::wstring jsonFile;               // empty: none
  std::wstring work;                   // full path of the directory for temporary installations
  std::uint32_t readyWithin = 60'000;  // milliseconds from the start of the attempt
  std::uint32_t healthyWithin = 120'000;  // likewise
  std::uint32_t closeWithin = 15'000;     // from the moment at which the runtime was asked to end
  std::set<Duty> duties;                  // those to be judged
  bool keep = false;                      // leave the temporary installations
  bool help = false;                      // tell the options and do nothing else; what else is here then says nothing
};

// `arguments`: without the program's own name. False: `problem` says what is wrong.
bool readOptions(const std::vector<std::wstring>& arguments, Options& options, std::string& problem);

std::string usage();

}  // namespace conformance
