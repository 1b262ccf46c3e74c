#include "tests/kills/foretold.h"

#include <algorithm>

namespace end_to_end::kills {
namespace {

constexpr std::uint32_t mostStarts = 3;

bool contains(const std::vector<std::string>& list, const std::string& entry) {
  return std::find(list.begin(), list.end(), entry) != list.end();
}

class Launch {
 public:
  Launch(const World& world, const Acts& acts, bool told, const LostStarts& lost)
      : world_(world), acts_(acts), told_(told), lost_(lost) {
    world_.pruning = false;
    world_.newAttempts = 0;
    note(Change::nothing);
  }

  Foretold tell() {
    while (iterationAsksForAnother()) {}
    return result_;
  }

 private:
  enum class End : std::uint8_t { staysOn, failed, restart, finished };

  void note(Change change) { result_.steps.push_back({change, world_}); }

  void prune() {
    if (world_.attempts.size() < 2) return;
    world_.pruning = true;
    note(Change::pruning);
    world_.pruning = false;
    world_.attempts = {world_.attempts.back()};
    world_.newAttempts = std::min<std::size_t>(world_.newAttempts, 1);
    note(Change::pruned);
  }

  // Changes what is to be written next, and says that the state in force is kept beside it.
  void raiseGeneration() {
    ++state_.generation;
    mustWrite_ = true;
    mustSave_ = true;
  }

  void reject() {
    state_.rejected.push_back(state_.candidate);
    state_.candidate.clear();
    state_.attemptCount = 0;
    raiseGeneration();
  }

  void readState() {
    mustWrite_ = mustSave_ = false;
    inForce_ = world_.boot ? world_.boot : world_.previous;
    state_ = inForce_.value_or(StateText{.generation = 0});
    if (!world_.boot) {
      state_.recovered = inForce_.has_value();
      raiseGeneration();
    }
    if (state_.attemptCount >= mostStarts) reject();
    mustRemove_ = inForce_ && world_.requestFor;
    if (mustRemove_ && *world_.requestFor == state_.generation && state_.lastRequestId != requestId &&
        !contains(state_.rejected, candidateSlot)) {
      state_.candidate = candidateSlot;
      state_.attemptCount = 0;
      state_.lastRequestId = requestId;
      raiseGeneration();
    }
  }

  std::string choose() {
    runsAsCandidate_ = !state_.candidate.empty() && state_.attemptCount < mostStarts;
    if (runsAsCandidate_) {
      ++state_.attemptCount;
      mustWrite_ = true;
      return state_.candidate;
    }
    for (const std::string& slot : {state_.active, state_.previous}) {
      if (!slot.empty() && !failed_.contains(slot)) return slot;
    }
    return seedSlot;
  }

  void write(Change saved, Change written) {
    if (mustWrite_ && mustSave_ && inForce_) {
      world_.previous = inForce_;
      note(saved);
    }
    if (mustWrite_) {
      world_.boot = state_;
      world_.damagedBoot.clear();
      note(written);
    }
    inForce_ = state_;
    mustWrite_ = mustSave_ = false;
  }

  void start(const std::string& slot) {
    write(Change::previousSaved, Change::stateWritten);
    if (mustRemove_) {
      world_.requestFor.reset();
      note(Change::requestRemoved);
    }
    mustRemove_ = false;
    world_.attempts.push_back(false);
    ++world_.newAttempts;
    note(Change::attemptCreated);
    world_.attempts.back() = true;
    note(Change::recordWritten);
    runtimeIsLost_ = lost_.contains(++startsOfLaunch_);
    if (runtimeIsLost_) return;
    world_.starts.push_back(slot);
    note(Change::runtimeStarted);
  }

  End runtimeDoes(const std::string& slot) {
    if (runtimeIsLost_) return End::failed;
    const auto starts = static_cast<std::size_t>(std::count(world_.starts.begin(), world_.starts.end(), slot));
    switch (actAt(acts_, slot, starts)) {
      case Act::crashes:
        return End::failed;
      case Act::asksForUpdate:
        world_.requestFor = state_.generation;
        note(Change::requestLeft);
        return End::restart;
      case Act::asksForRestart:
        return End::restart;
      case Act::provesHealthy:
        if (runsAsCandidate_ && !told_) promote();
        break;
      case Act::stays:
        break;
    }
    return told_ ? End::finished : End::staysOn;
  }

  void promote() {
    state_.previous = state_.active;
    state_.active = state_.candidate;
    state_.candidate.clear();
    state_.attemptCount = 0;
    raiseGeneration();
    write(Change::promotionCopied, Change::promoted);
  }

  void fail(const std::string& slot) {
    const bool usedUp = state_.attemptCount >= mostStarts;
    if (!runsAsCandidate_) failed_.insert(slot);
    if (runsAsCandidate_ && usedUp) reject();
  }

  bool iterationAsksForAnother() {
    failed_.clear();
    prune();
    readState();
    for (;;) {
      const std::string slot = choose();
      start(slot);
      const End end = runtimeDoes(slot);
      if (end == End::staysOn) return false;
      if (end == End::failed) {
        fail(slot);
        if (!failed_.contains(seedSlot)) continue;
        result_.exitCode = 1;  // nothing is left to start
        return false;
      }
      if (runsAsCandidate_) {  // whatever it asked for, its start does not count
        --state_.attemptCount;
        mustWrite_ = true;
        write(Change::previousSaved, Change::endRecorded);
      }
      if (end == End::finished) result_.exitCode = exitCodeOf(slot);
      return end == End::restart;
    }
  }

  World world_;
  const Acts& acts_;
  bool told_;
  const LostStarts& lost_;
  Foretold result_ = {};

  StateText state_ = {};                   // as it will be written next
  std::optional<StateText> inForce_ = {};  // as it was read or written last
  bool mustWrite_ = false;
  bool mustSave_ = false;
  bool mustRemove_ = false;
  bool runsAsCandidate_ = false;
  bool runtimeIsLost_ = false;
  std::size_t startsOfLaunch_ = 0;
  std::set<std::string> failed_ = {};
};

}  // namespace

Act actAt(const Acts& acts, const std::string& slot, std::size_t start) {
  const auto found = acts.find(slot);
  return found != acts.end() && start <= found->second.size() ? found->second[start - 1] : Act::stays;
}

int exitCodeOf(const std::string& slot) {
  static const std::map<std::string, int> codes = {
      {seedSlot, 10}, {activeSlot, 11}, {candidateSlot, 12}, {previousSlot, 13}};
  return codes.at(slot);
}

const char* nameOf(Change change) {
  static constexpr const char* names[] = {"the launch has begun",
                                          "old attempts are being removed",
                                          "old attempts have been removed",
                                          "the previous state has been saved",
                                          "the state has been written",
                                          "the request has been removed",
                                          "the attempt directory has been created",
                                          "the attempt record has been written",
                                          "the runtime has started",
                                          "the runtime has left a request",
                                          "the end has been recorded",
                                          "the promoted state's predecessor has been saved",
                                          "the promotion has been written"};
  return names[static_cast<std::size_t>(change)];
}

Foretold foretell(const World& world, const Acts& acts, bool told, const LostStarts& lost) {
  return Launch(world, acts, told, lost).tell();
}

}  // namespace end_to_end::kills
