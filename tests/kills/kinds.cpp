#include "tests/kills/kinds.h"

namespace end_to_end::kills {
namespace {

constexpr std::size_t manyAttempts = 30;
constexpr std::uint64_t generation = 5;

StateText plain() { return {.generation = generation, .active = activeSlot, .previous = previousSlot}; }

StateText trial(std::uint32_t starts) {
  StateText state = plain();
  state.candidate = candidateSlot;
  state.lastRequestId = "request-0";
  state.attemptCount = starts;
  return state;
}

World worldOf(const StateText& state) { return {.boot = state, .previous = {}, .requestFor = {}}; }

World withRequest() {
  World world = worldOf(plain());
  world.requestFor = generation;
  return world;
}

// A state that was cut off in the middle, beside the one before it.
World damaged(const StateText& previous) {
  const std::string whole = trial(1).json();
  return {.boot = {}, .damagedBoot = whole.substr(0, whole.size() / 2), .previous = previous, .requestFor = {}};
}

World lost(const StateText& previous) { return {.boot = {}, .previous = previous, .requestFor = {}}; }

World withAttempts(std::size_t count) {
  World world = worldOf(plain());
  world.attempts.assign(count, true);
  return world;
}

const char* commandsOf(Act act) {
  switch (act) {
    case Act::crashes:
      return "crash\n";
    case Act::asksForUpdate:
      return "pending bbbb request-1\nrestart request-1\nexit 0\n";
    case Act::asksForRestart:
      return "restart\nexit 0\n";
    case Act::provesHealthy:
      return "ready\nhealthy\n";
    case Act::stays:
      break;
  }
  return "ready\n";
}

bool goesOn(Act act) { return act == Act::stays || act == Act::provesHealthy; }

}  // namespace

const std::vector<Kind>& kinds() {
  using enum Act;
  static const std::vector<Kind> all = {
      {"first run", 8, {.boot = {}, .previous = {}, .requestFor = {}}, {}, false, true},
      {"plain start", 8, worldOf(plain())},
      {"request taken in", 13, withRequest()},
      {"candidate's first start", 8, worldOf(trial(0))},
      {"candidate's second start", 7, worldOf(trial(1))},
      {"candidate's third start", 8, worldOf(trial(2))},
      {"rejection at the start", 6, worldOf(trial(3))},
      {"crashing candidate", 10, worldOf(trial(0)), {{candidateSlot, {crashes, crashes, crashes}}}},
      {"restart for an update", 8, worldOf(plain()), {{activeSlot, {asksForUpdate, asksForUpdate}}}},
      {"restart asked by the candidate", 5, worldOf(trial(1)), {{candidateSlot, {asksForRestart, asksForRestart}}}},
      {"recovery from a damaged state", 5, damaged(plain())},
      {"recovery from a lost state", 3, lost(trial(2))},
      {"many old attempts", 4, withAttempts(manyAttempts)},
      {"exit", 5, worldOf(plain()), {}, true},
      {"exit of the candidate", 4, worldOf(trial(0)), {}, true},
  };
  return all;
}

const Kind& promotion() {
  static const Kind kind = {"promotion", 0, worldOf(trial(0)), {{candidateSlot, {Act::provesHealthy}}}};
  return kind;
}

std::string scriptOf(const Acts& acts, const std::string& slot, bool grandchild) {
  const std::string stay =
      "wait 600000 {install}\\finish\nrestart - foreign-nonce\nexit " + std::to_string(exitCodeOf(slot)) + "\n";
  std::string script = std::string(beginNote) + "\n" + (grandchild ? "grandchild 600000\n" : "");
  const auto found = acts.find(slot);
  if (found != acts.end()) {
    for (std::size_t i = 0; i < found->second.size(); ++i) {
      const Act act = found->second[i];
      script += "[start " + std::to_string(i + 1) + "]\n" + commandsOf(act) + (goesOn(act) ? stay : "");
    }
    script += "[otherwise]\n";
  }
  return script + commandsOf(Act::stays) + stay;
}

}  // namespace end_to_end::kills
