// Whether a state document is one that the launcher may come to from another one.
#include "tests/call_faults/state_steps.h"

#include <algorithm>

#include "state/boot_state.h"

namespace call_faults {
namespace {

using launcher_stub::BootState;

std::optional<BootState> read(const std::string& document) {
  BootState state;
  std::string error;
  if (!launcher_stub::readBootState(document, state, error)) return std::nullopt;
  return state;
}

std::size_t rejectedSince(const BootState& before, const BootState& after) {
  return after.rejected.size() - std::min(before.rejected.size(), after.rejected.size());
}

// Each of these raises the generation by one, and nothing else does.
std::uint64_t raises(const BootState& before, const BootState& after) {
  return rejectedSince(before, after) + (after.lastRequestId != before.lastRequestId ? 1 : 0) +
         (after.active != before.active ? 1 : 0) + (after.recovered && !before.recovered ? 1 : 0);
}

bool beginsWith(const std::vector<std::string>& list, const std::vector<std::string>& beginning) {
  return list.size() >= beginning.size() && std::equal(beginning.begin(), beginning.end(), list.begin());
}

std::string wrongStep(const LaunchKind& kind, const BootState& before, const BootState& after) {
  if (!beginsWith(after.rejected, before.rejected)) return "forgets a rejected slot";
  if (after.active != before.active && (kind.promoted.empty() || after.active != kind.promoted)) {
    return "trusts another slot";
  }
  if (after.candidate && after.candidate == before.candidate && after.attemptCount < before.attemptCount) {
    return "forgets starts of its candidate";
  }
  const std::uint64_t raised = raises(before, after);
  const bool isRaised = after.generation == before.generation + raised;
  const bool isAboveDamaged = kind.damagedGeneration > before.generation && after.recovered &&
                              after.generation == kind.damagedGeneration + raised;
  return isRaised || isAboveDamaged ? "" : "has a generation that does not fit";
}

// The first state of all, which a first run writes, counts as a step of its own.
BootState firstState() { return {.generation = 1}; }

}  // namespace

std::string judgeStep(const LaunchKind& kind, const std::optional<std::string>& found, const std::string& first) {
  if (found.value_or("") == first) return {};
  const std::optional<BootState> after = found ? read(*found) : std::nullopt;
  if (!after || launcher_stub::writeBootState(*after) != *found) {
    return "is neither old nor whole: " + found.value_or("(gone)");
  }
  const bool isFirstRun = kind.state.empty() && kind.previous.empty();
  if (isFirstRun) return wrongStep(kind, firstState(), *after);
  const std::optional<BootState> state = read(kind.state);
  const std::optional<BootState> before = state ? state : read(kind.previous);
  if (!before) return "is written where nothing could be read";
  return wrongStep(kind, *before, *after);
}

}  // namespace call_faults
