#include "domain.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <vector>

namespace launcher_stub::decision_space {
namespace {

const std::array<std::string, seedNumber + 1> names = {"", "aaaa", "bbbb", "cccc", "seed"};

constexpr unsigned bit(unsigned slot) { return 1U << slot; }

// False: the name is none of this world's.
bool numberOf(const std::string& name, unsigned& number) {
  const auto* const found = std::find(names.begin() + 1, names.end(), name);
  number = static_cast<unsigned>(found - names.begin());
  return found != names.end();
}

bool numberOf(const std::optional<std::string>& name, unsigned& number) {
  number = 0;
  return !name || numberOf(*name, number);
}

template <typename Names>
bool setOf(const Names& members, unsigned& set) {
  set = 0;
  for (const std::string& name : members) {
    unsigned number = 0;
    if (!numberOf(name, number) || (set & bit(number)) != 0) return false;
    set |= bit(number);
  }
  return true;
}

template <typename Names>
Names membersOf(unsigned set) {
  Names members;
  for (unsigned slot = 1; slot <= seedNumber; ++slot) {
    if ((set & bit(slot)) != 0) members.insert(members.end(), names[slot]);
  }
  return members;
}

std::optional<std::string> nameOf(unsigned number) {
  if (number == 0) return std::nullopt;
  return names[number];
}

bool readSlots(const LauncherModel& model, Point& point) {
  const BootState& state = model.state;
  return numberOf(state.active, point.active) && numberOf(state.previous, point.previous) &&
         numberOf(state.candidate, point.candidate) && numberOf(model.selected, point.selected) &&
         setOf(state.rejected, point.rejected) && setOf(model.runnableSlots, point.runnable) &&
         setOf(model.failedThisRun, point.failed);
}

bool readTimes(const LauncherModel& model, Point& point) {
  if (model.firstDuration != healthyWithinMs || model.secondDuration != soakMs) return false;
  if (model.startTime != 0 && model.startTime != childStartMs) return false;
  point.childStarted = model.startTime != 0 ? 1 : 0;
  if (!model.promotionMarkSeen) return model.markTime == 0;
  point.mark = model.markTime == lateMarkMs ? 2 : 1;
  return point.mark == 2 || model.markTime == childStartMs || model.markTime == childStartMs - 1;
}

// Gives the slots their new numbers, in the order in which they ask.
class Numbering {
 public:
  unsigned of(unsigned slot) {
    if (slot == 0 || slot == seedNumber) return slot;
    if (given_[slot] == 0) given_[slot] = ++last_;
    return given_[slot];
  }
  unsigned ofSet(unsigned set) const {
    unsigned renumbered = set & bit(seedNumber);
    for (unsigned slot = 1; slot <= slotCount; ++slot) {
      if ((set & bit(slot)) != 0 && given_[slot] != 0) renumbered |= bit(given_[slot]);
    }
    return renumbered;
  }

 private:
  std::array<unsigned, slotCount + 1> given_ = {};
  unsigned last_ = 0;
};

// What every field needs at most, in bits. One list for both directions.
template <typename AnyPoint, typename Field>
void forEachField(AnyPoint& point, const Field& field) {
  field(point.active, 2U);
  field(point.previous, 2U);
  field(point.candidate, 2U);
  field(point.selected, 3U);
  field(point.kind, 2U);
  field(point.attemptCount, 3U);
  field(point.topGeneration, 2U);
  field(point.requestKnown, 1U);
  field(point.rejected, seedNumber + 1);
  field(point.runnable, seedNumber + 1);
  field(point.failed, seedNumber + 1);
  field(point.seedRunnable, 1U);
  field(point.trialAllowed, 1U);
  field(point.childStarted, 1U);
  field(point.mark, 2U);
  field(point.settled, 1U);
  field(point.timeoutQueued, 1U);
}

}  // namespace

const std::string& slotName(unsigned number) { return names[number]; }

std::optional<Point> pointOf(const LauncherModel& model) {
  Point point;
  if (!readSlots(model, point) || !readTimes(model, point)) return std::nullopt;
  if (model.nextNonce != runningNonce && model.nextNonce != freshNonce) return std::nullopt;
  if (model.selectedKind > kindSeed || model.state.attemptCount > 4) return std::nullopt;
  point.kind = model.selectedKind;
  point.attemptCount = model.state.attemptCount;
  const std::uint64_t toTheTop = lastGeneration - model.state.generation;
  point.topGeneration = toTheTop < 2 ? static_cast<unsigned>(2 - toTheTop) : 0;
  point.requestKnown = model.state.lastRequestId ? 1 : 0;
  point.seedRunnable = model.seedRunnable ? 1 : 0;
  point.trialAllowed = model.candidateTrialAllowed ? 1 : 0;
  point.settled = model.settledMarkSeen ? 1 : 0;
  point.timeoutQueued = model.timeoutQueued ? 1 : 0;
  return point;
}

Point canonical(const Point& point) {
  Point result = point;
  Numbering numbering;
  result.active = numbering.of(point.active);
  result.previous = numbering.of(point.previous);
  result.candidate = numbering.of(point.candidate);
  result.selected = numbering.of(point.selected);
  result.rejected = numbering.ofSet(point.rejected);
  result.runnable = numbering.ofSet(point.runnable);
  result.failed = numbering.ofSet(point.failed);
  return result;
}

LauncherModel modelAt(const Point& point) {
  LauncherModel model;
  BootState& state = model.state;
  state.generation = point.topGeneration != 0 ? lastGeneration - 2 + point.topGeneration : 1;
  state.active = nameOf(point.active);
  state.previous = nameOf(point.previous);
  state.candidate = nameOf(point.candidate);
  if (point.requestKnown != 0) state.lastRequestId = lastRequest;
  state.attemptCount = point.attemptCount;
  state.rejected = membersOf<std::vector<std::string>>(point.rejected);
  state.recovered = point.attemptCount % 2 != 0;
  model.runnableSlots = membersOf<SlotNames>(point.runnable);
  model.seedRunnable = point.seedRunnable != 0;
  model.candidateTrialAllowed = point.trialAllowed != 0;
  model.nextNonce = runningNonce;
  model.selected = nameOf(point.selected);
  model.selectedKind = point.kind;
  model.startTime = point.childStarted != 0 ? childStartMs : 0;
  if (point.mark != 0) model.markTime = point.mark == 2 ? lateMarkMs : childStartMs;
  model.promotionMarkSeen = point.mark != 0;
  model.settledMarkSeen = point.settled != 0;
  model.timeoutQueued = point.timeoutQueued != 0;
  model.failedThisRun = membersOf<SlotNames>(point.failed);
  return model;
}

std::uint64_t packed(const Point& point) {
  std::uint64_t number = 0;
  unsigned used = 0;
  forEachField(point, [&](const unsigned& value, unsigned bits) {
    number |= std::uint64_t{value} << used;
    used += bits;
  });
  return number;
}

Point unpacked(std::uint64_t number) {
  Point point;
  forEachField(point, [&](unsigned& value, unsigned bits) {
    value = static_cast<unsigned>(number & ((std::uint64_t{1} << bits) - 1));
    number >>= bits;
  });
  return point;
}

}  // namespace launcher_stub::decision_space
