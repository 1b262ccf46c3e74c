#include "tests/launcher/scenario.h"

#include <algorithm>
#include <functional>

#include "tests/simulation/sim_paths.h"

namespace launcher_stub {
namespace {

std::optional<std::string> nameOrNone(const std::string& name) {
  return name.empty() ? std::nullopt : std::optional<std::string>(name);
}

}  // namespace

BootState storedState(std::uint64_t generation, const std::string& active, const std::string& candidate,
                      const std::string& previous) {
  BootState state;
  state.generation = generation;
  state.active = nameOrNone(active);
  state.candidate = nameOrNone(candidate);
  state.previous = nameOrNone(previous);
  return state;
}

BootState trialState() { return storedState(5, "aaaa", "bbbb"); }

void installTrusted(SimOs& sim) {
  sim.installSeed(Runtime::healthy());
  sim.install("aaaa", Runtime::healthy());
  sim.writeBootState(storedState(5, "aaaa"));
}

void installTrial(SimOs& sim, const Runtime& candidate) {
  installTrusted(sim);
  sim.install("bbbb", candidate);
  sim.writeBootState(trialState());
}

Runtime readyAndEnding(std::uint64_t ms, std::uint32_t code) { return Runtime().readyAt(1).exitsAt(ms, code); }

Runtime restarting(Form form, const std::optional<std::string>& requestId, std::uint32_t code) {
  return Runtime().readyAt(1).requestsRestartAt(1'000, form, requestId).exitsAt(1'000, code);
}

void countCalls(SimOs& sim, Call call, const std::wstring& pattern, int& count) {
  struct Counter {
    SimOs& sim;
    Call call;
    std::wstring pattern;
    int& count;

    void operator()() const {
      ++count;
      sim.before(call, pattern, *this, 1);  // 1: a hook that is added in a call sees this very call as well
    }
  };
  sim.before(call, pattern, Counter{sim, call, pattern, count});
}

std::vector<std::string> boxTexts(const SimOs& sim) {
  std::vector<std::string> texts;
  for (const sim::Box& box : sim.boxes()) texts.push_back(box.text);
  return texts;
}

Times timesOfLine(const SimOs& sim, const std::string& line) {
  Times times;
  for (const sim::TimedText& one : sim.timedLines()) {
    if (one.text == line) times.push_back(one.time - sim.lastRun().startedAt);
  }
  return times;
}

Times startTimes(const SimOs& sim) {
  Times times;
  for (const sim::Start& start : sim.starts()) times.push_back(start.time - sim.lastRun().startedAt);
  return times;
}

std::uint64_t timeOfState(const SimOs& sim, const std::string& part) {
  const auto& all = sim.replacements();
  const auto found = std::find_if(all.begin(), all.end(), [&](const sim::Replacement& one) {
    return sim::pathMatches(one.path, sim.statePath(L"boot-v1.json")) && one.contents.find(part) != std::string::npos;
  });
  return found != all.end() ? found->time - sim.lastRun().startedAt : 0;
}

}  // namespace launcher_stub
