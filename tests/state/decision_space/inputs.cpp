#include "inputs.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace launcher_stub::decision_space {
namespace {

const std::string requestId = "request-0001";
const std::string otherRequestId = "request-0002";
const std::string foreignId = "request-0003";
constexpr std::uint64_t anyTimeMs = 5'000;

// Who is mentioned where: slot numbers, 0 for none.
struct Mentions {
  unsigned active = 0;
  unsigned previous = 0;
  unsigned candidate = 0;
  unsigned requested = 0;
};

struct Condition {
  bool usable = false;
  bool ignored = false;
  bool rejected = false;
};
using Conditions = std::array<Condition, slotCount + 1>;

std::vector<Mentions> allMentions() {
  std::vector<Mentions> all;
  for (unsigned active = 0; active <= 1; ++active) {
    for (unsigned previous = 0; previous <= active + 1; ++previous) {
      const unsigned two = std::max(active, previous);
      for (unsigned candidate = 0; candidate <= two + 1; ++candidate) {
        const unsigned three = std::max(two, candidate);
        for (unsigned requested = 0; requested <= std::min(three + 1, slotCount); ++requested) {
          all.push_back({active, previous, candidate, requested});
        }
      }
    }
  }
  return all;
}

std::vector<Condition> conditionsOf(unsigned slot, const Mentions& mentions) {
  constexpr Condition usable{.usable = true};
  constexpr Condition usableRejected{.usable = true, .rejected = true};
  constexpr Condition ignored{.ignored = true};
  constexpr Condition ignoredRejected{.ignored = true, .rejected = true};
  constexpr Condition missing{};
  constexpr Condition missingRejected{.rejected = true};
  if (slot == mentions.candidate) {
    return {usable, usableRejected, ignored, ignoredRejected, missing, missingRejected};
  }
  if (slot == mentions.requested) return {usable, usableRejected, ignored, ignoredRejected};
  if (slot == mentions.active || slot == mentions.previous) return {usable, usableRejected, missing};
  return {usable};
}

std::vector<Conditions> allConditions(const Mentions& mentions) {
  std::vector<Conditions> all;
  for (const Condition& a : conditionsOf(1, mentions)) {
    for (const Condition& b : conditionsOf(2, mentions)) {
      for (const Condition& c : conditionsOf(3, mentions)) all.push_back({Condition{}, a, b, c});
    }
  }
  return all;
}

// Where the state comes from.
struct Source {
  bool isBackup = false;
  std::uint64_t generation = 0;
  std::optional<std::uint64_t> floor;
};

const Source sources[] = {
    {false, 0, {}},
    {false, 1, {}},
    {false, lastGeneration - 2, {}},
    {false, lastGeneration - 1, {}},
    {false, lastGeneration, {}},
    {true, 0, {}},
    {true, 1, 0},
    {true, 1, 1},
    {true, 1, lastGeneration - 2},
    {true, 1, lastGeneration - 1},
    {true, 1, lastGeneration},
    {true, lastGeneration - 2, 1},
    {true, lastGeneration - 2, {}},
    {true, lastGeneration - 1, {}},
    {true, lastGeneration, 1},
};

std::optional<std::string> nameOf(unsigned number) {
  if (number == 0) return std::nullopt;
  return slotName(number);
}

BootState stateOf(const Mentions& mentions, const Conditions& conditions, std::uint32_t attemptCount) {
  BootState state;
  state.active = nameOf(mentions.active);
  state.previous = nameOf(mentions.previous);
  state.candidate = nameOf(mentions.candidate);
  state.attemptCount = attemptCount;
  state.recovered = attemptCount % 2 != 0;
  if (attemptCount % 2 != 0) state.lastRequestId = otherRequestId;
  for (unsigned slot = 1; slot <= slotCount; ++slot) {
    if (conditions[slot].rejected) state.rejected.push_back(slotName(slot));
  }
  return state;
}

StartInput startWith(const Conditions& conditions, bool seedRunnable, bool trialAllowed) {
  StartInput input;
  for (unsigned slot = 1; slot <= slotCount; ++slot) {
    if (conditions[slot].usable) input.runnableSlots.insert(slotName(slot));
    if (conditions[slot].ignored) input.exempt.insert(slotName(slot));
  }
  input.seedRunnable = seedRunnable;
  input.candidateTrialAllowed = trialAllowed;
  input.nextNonce = runningNonce;
  input.now = anyTimeMs;
  return input;
}

// Puts the state where the source says, with its generation. The other one is there at times and must not count.
BootState& place(StartInput& input, const Source& source, const BootState& state) {
  std::optional<BootState>& home = source.isBackup ? input.backup : input.primary;
  home = state;
  home->generation = source.generation;
  input.generationFloor = source.floor;
  if (!source.isBackup && state.recovered) {
    input.backup.emplace();
    input.backup->generation = 40;
    input.backup->active = slotName(1);
    input.generationFloor = 50;
  }
  return *home;
}

using Use = std::function<bool(const StartInput&)>;

bool useWithRequests(StartInput& input, BootState& state, unsigned requested, const Use& use) {
  const std::uint64_t inForce =
      input.primary ? state.generation : std::max(state.generation, input.generationFloor.value_or(0));
  PendingRequest request{requestId, 0, slotName(requested)};
  const std::optional<std::string> lastIds[] = {std::nullopt, requestId, otherRequestId};
  for (std::uint64_t bumps = 0; bumps <= 2; ++bumps) {
    request.expectedGeneration = inForce + bumps;  // past the last one: 0 or 1, which does not fit either
    input.pending = request;
    for (const std::optional<std::string>& lastId : lastIds) {
      state.lastRequestId = lastId;
      if (!use(input)) return false;
    }
  }
  return true;
}

bool useStoredState(const Mentions& mentions, const Conditions& conditions, std::uint32_t attemptCount,
                    const Use& use) {
  const BootState stored = stateOf(mentions, conditions, attemptCount);
  for (unsigned bits = 0; bits < 4; ++bits) {
    const StartInput common = startWith(conditions, (bits & 1U) != 0, (bits & 2U) != 0);
    for (const Source& source : sources) {
      if (source.isBackup && attemptCount % 3 != 0) continue;
      StartInput input = common;
      BootState& state = place(input, source, stored);
      if (mentions.requested != 0 ? !useWithRequests(input, state, mentions.requested, use) : !use(input)) return false;
    }
  }
  return true;
}

// No valid state at all: the first run, or two files that cannot be read.
bool useNoState(const Use& use) {
  for (unsigned bits = 0; bits < 64; ++bits) {
    const auto bit = [bits](unsigned at) { return (bits >> at & 1U) != 0; };
    StartInput input = startWith({Condition{}, Condition{.usable = bit(0)}, {}, {}}, bit(1), bit(2));
    input.firstRun = bit(3);
    if (bit(4)) input.generationFloor = lastGeneration;
    if (bit(5)) input.pending = PendingRequest{requestId, input.firstRun ? 1U : 0U, slotName(1)};
    if (!use(input)) return false;
  }
  return true;
}

RestartRequest restartFor(const Point& point) { return {slotName(point.selected), runningNonce, std::nullopt}; }

ExitInput exitWith(std::uint32_t exitCode) {
  ExitInput input;
  input.exitCode = exitCode;
  input.nextNonce = freshNonce;
  input.now = anyTimeMs;
  return input;
}

ExitInput exitAsking(const RestartRequest& request, std::optional<std::string> extraRequestId = std::nullopt) {
  ExitInput input = exitWith(7);
  input.restartPresent = true;
  input.restart = request;
  input.extraRequestId = std::move(extraRequestId);
  return input;
}

ExitInput exitAskingFor(const Point& point, const std::string& id, std::optional<std::string> extraRequestId) {
  RestartRequest request = restartFor(point);
  request.requestId = id;
  return exitAsking(request, std::move(extraRequestId));
}

std::vector<std::uint64_t> momentsOf(const Point& point) {
  constexpr std::uint64_t start = childStartMs;
  if (point.selected == 0 || point.kind != kindCandidate) return {start, start + 2 * healthyWithinMs};
  if (point.timeoutQueued != 0) return {start + healthyWithinMs, start + healthyWithinMs + 1};
  if (point.mark == 0) return {start - 1, start, start + healthyWithinMs - 1, start + healthyWithinMs};
  const std::uint64_t mark = point.mark == 2 ? lateMarkMs : start;
  return {mark - 1, mark + 1, mark + soakMs - 1, mark + soakMs};
}

}  // namespace

void forEachStart(const Use& use) {
  if (!useNoState(use)) return;
  for (const Mentions& mentions : allMentions()) {
    for (const Conditions& conditions : allConditions(mentions)) {
      for (std::uint32_t attemptCount = 0; attemptCount <= 4; ++attemptCount) {
        if (!useStoredState(mentions, conditions, attemptCount, use)) return;
      }
    }
  }
}

std::vector<SpawnInput> spawnInputs(const Point& point) {
  SpawnInput failed;
  failed.nextNonce = freshNonce;
  failed.now = anyTimeMs;
  if (point.selected == 0) return {failed};
  if (point.childStarted != 0) return {};
  SpawnInput started = failed;
  started.started = true;
  return {started, failed};
}

std::vector<TickInput> tickInputs(const Point& point) {
  if (point.selected != 0 && point.childStarted == 0) return {};
  std::vector<TickInput> inputs;
  for (const std::uint64_t now : momentsOf(point)) {
    for (const bool settled : {false, true}) {
      for (const bool healthy : {false, true}) {
        inputs.push_back({now, settled, healthy, Durations()});
      }
    }
  }
  return inputs;
}

std::vector<ExitInput> exitInputs(const Point& point) {
  if (point.selected != 0 && point.childStarted == 0) return {};
  ExitInput unreadable = exitWith(0xC0000005);
  unreadable.restartPresent = true;
  ExitInput absent = exitAsking(restartFor(point));  // a request without its file does not count
  absent.restartPresent = false;
  RestartRequest ofOtherSlot = restartFor(point);
  ofOtherSlot.slot = slotName(point.selected == 1 ? 2 : 1);
  RestartRequest ofOtherAttempt = restartFor(point);
  ofOtherAttempt.nonce = "nonce-0003";
  RestartRequest ofNextAttempt = restartFor(point);
  ofNextAttempt.nonce = freshNonce;
  return {
      exitWith(0),
      exitWith(0xC0000005),
      absent,
      unreadable,
      exitAsking(restartFor(point)),
      exitAsking(restartFor(point), foreignId),
      exitAsking(ofOtherSlot),
      exitAsking(ofOtherAttempt),
      exitAsking(ofNextAttempt),
      exitAskingFor(point, lastRequest, std::nullopt),
      exitAskingFor(point, otherRequestId, otherRequestId),
      exitAskingFor(point, foreignId, otherRequestId),
      exitAskingFor(point, foreignId, std::nullopt),
  };
}

}  // namespace launcher_stub::decision_space
