// One whole launch of the launcher in this process, and what is to be said of it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tests/call_faults/world.h"

namespace call_faults {

struct Outcome {
  std::optional<int> exitCode;        // none: it ended by an exception
  bool endless = false;               // it would not have ended
  std::vector<std::wstring> refused;  // what each call that met the fault was about
  std::vector<std::string> lines;     // on standard error, without the notice of the list
  std::vector<std::string> boxes;
  std::vector<std::string> started;       // slots
  std::optional<DWORD> lastRuntimesCode;  // with which the last one really ended
  std::uint64_t lastedMs = 0;             // of its own time
  std::uint64_t calls = 0;
  std::vector<std::string> findings;  // what was wrong while it ran
  std::vector<Place> places;          // all calls that the launcher itself made
};

// `number`: of this installation's launches, from 1.
Outcome launch(const World& world, const Circumstances& circumstances, const std::optional<Fault>& fault,
               std::uint32_t number);

// What is wrong with the outcome of a launch that met `fault`; empty is what it should be.
std::vector<std::string> judge(const World& world, const LaunchKind& kind, const std::optional<Fault>& fault,
                               const Outcome& outcome);
// The part of it about starts that failed.
void judgeStartLines(const LaunchKind& kind, const std::optional<Fault>& fault, const Outcome& outcome,
                     std::vector<std::string>& findings);
// The same of the next launch, which nothing disturbs.
std::vector<std::string> judgeNext(const LaunchKind& kind, const Outcome& outcome);

std::string join(const std::vector<std::string>& list, std::string_view between = "; ");

}  // namespace call_faults
