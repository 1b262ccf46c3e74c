// What the tests of whole runs share: short words, the usual situation, and questions to the simulated machine.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/simulation/sim_os.h"

namespace launcher_stub {

using sim::Call;
using sim::Form;
using sim::Runtime;
using sim::SimOs;

using Names = std::vector<std::string>;
using Lines = std::vector<std::string>;
using Times = std::vector<std::uint64_t>;  // ms

// A stored state; an empty name stands for none.
BootState storedState(std::uint64_t generation, const std::string& active, const std::string& candidate = "",
                      const std::string& previous = "");

// "aaaa" is active and "bbbb" the candidate, in generation 5.
BootState trialState();

// The seed, and "aaaa" which is active: both end well after 90 s.
void installTrusted(SimOs& sim);

// The same with "bbbb" on trial.
void installTrial(SimOs& sim, const Runtime& candidate);

// A runtime that reports ready at once and ends after `ms` with `code`.
Runtime readyAndEnding(std::uint64_t ms, std::uint32_t code = 0);

// A runtime that is ready and asks to be started again after a second.
Runtime restarting(Form form = Form::right, const std::optional<std::string>& requestId = std::nullopt,
                   std::uint32_t code = 0);

// Counts from now on how often `call` is made for paths that match, also where it fails. `count` must live as long as
// calls are made.
void countCalls(SimOs& sim, Call call, const std::wstring& pattern, int& count);

std::vector<std::string> boxTexts(const SimOs& sim);
Times timesOfLine(const SimOs& sim, const std::string& line);

// When each start came about, in ms since the launcher's own start.
Times startTimes(const SimOs& sim);

// The time of the first durable replacement of "boot-v1.json" whose text holds `part`; 0 for none.
std::uint64_t timeOfState(const SimOs& sim, const std::string& part);

}  // namespace launcher_stub
