#include "tests/kills/promises.h"

#include <algorithm>

#include "state/attempt_record.h"
#include "state/boot_state.h"
#include "state/pending_request.h"

namespace end_to_end::kills {
namespace {

using launcher_stub::AttemptRecord;
using launcher_stub::BootState;
using launcher_stub::PendingRequest;

constexpr const char* wholeDocuments = "each document that is read back is whole and valid";
constexpr const char* neverFalls = "the generation never falls";
constexpr const char* threeStarts = "a candidate is started at most three times for each request that named it";
constexpr const char* countedFirst = "a start of the candidate is counted on the disk before it comes about";
constexpr const char* onePerKill = "a kill gains at most one start that never came about";
constexpr const char* neverRejected = "a slot on the rejected list is never started, trusted or tried again";
constexpr const char* onlyPromotion = "the active slot changes only by a promotion, after the full soak";
constexpr const char* takenOnce = "a request is taken in at most once";
constexpr const char* disposedOf = "a request that was considered is off the disk before anything is started";
constexpr const char* fewTemporaries = "a launch leaves no temporary file, but for one where it was killed";

std::optional<BootState> stateOf(const std::string& document) {
  BootState state;
  std::string error;
  if (document.empty() || !readBootState(document, state, error)) return std::nullopt;
  return state;
}

bool isRequest(const std::string& document) {
  PendingRequest request;
  std::string error;
  return readPendingRequest(document, request, error);
}

bool isRecordOf(const Attempt& attempt) {
  AttemptRecord record;
  std::string error;
  return readAttemptRecord(attempt.record, record, error) && record.nonce == attempt.name;
}

bool contains(const std::vector<std::string>& list, const std::string& entry) {
  return std::find(list.begin(), list.end(), entry) != list.end();
}

class Judge {
 public:
  explicit Judge(const Judged& launch)
      : launch_(launch), before_(stateInForce(launch.before)), after_(stateInForce(launch.after)) {}

  std::vector<std::string> judge() {
    documents();
    if (before_ && after_) {
      expect(after_->generation >= before_->generation, neverFalls);
      activeSlot();
      request();
    }
    if (after_) rejected();
    starts();
    const std::size_t left = launch_.killed ? 1 : 0;
    expect(launch_.after.temporaryFiles <= launch_.before.temporaryFiles + left, fewTemporaries);
    return broken_;
  }

 private:
  static std::optional<BootState> stateInForce(const Found& found) {
    const std::optional<BootState> state = stateOf(found.boot);
    return state ? state : stateOf(found.previous);
  }

  void expect(bool holds, const char* promise) {
    if (!holds) broken_.emplace_back(promise);
  }

  void documents() {
    const Found& after = launch_.after;
    const bool stillDamaged = after.boot == launch_.kind.world.damagedBoot;
    expect(after.boot.empty() || stillDamaged || stateOf(after.boot), wholeDocuments);
    expect(after.previous.empty() || stateOf(after.previous), wholeDocuments);
    expect(after.request.empty() || isRequest(after.request), wholeDocuments);
    for (const Attempt& attempt : after.attempts) {
      expect(attempt.record.empty() || isRecordOf(attempt), wholeDocuments);
    }
  }

  void activeSlot() {
    const bool promoted = after_->active == candidateSlot && before_->active != candidateSlot;
    expect(after_->active == before_->active || (promoted && launch_.soaked), onlyPromotion);
  }

  void request() {
    const bool leavesAnother = launch_.kind.acts.contains(kills::activeSlot);
    const bool started = launch_.after.starts.size() > launch_.before.starts.size();
    if (started && !launch_.before.request.empty() && !leavesAnother) {
      expect(launch_.after.request.empty(), disposedOf);
    }
    // Taken in before: the trial that it began goes on, it does not begin anew.
    const bool sameTrial = before_->lastRequestId == after_->lastRequestId && after_->candidate;
    if (sameTrial) expect(before_->candidate == after_->candidate, takenOnce);
    if (sameTrial && launch_.restarts == 0) expect(after_->attemptCount >= before_->attemptCount, takenOnce);
  }

  void rejected() {
    for (const std::string& slot : after_->rejected) {
      expect(after_->active != slot && after_->candidate != slot, neverRejected);
      if (before_ && contains(before_->rejected, slot)) {
        expect(countStarts(launch_.before, slot) == countStarts(launch_.after, slot), neverRejected);
      }
    }
  }

  static std::size_t countStarts(const Found& found, const std::string& slot) {
    const std::vector<std::string> slots = found.startedSlots();
    return static_cast<std::size_t>(std::count(slots.begin(), slots.end(), slot));
  }

  // Counted on the disk when the kind's first launch began.
  std::size_t countedAtFirst() const {
    const World& world = launch_.kind.world;
    const std::optional<StateText>& state = world.boot ? world.boot : world.previous;
    return state && state->candidate == candidateSlot ? state->attemptCount : 0;
  }

  void starts() {
    if (launch_.soaked || (after_ && after_->active == candidateSlot)) return;  // no candidate any more
    const std::size_t ran = countedAtFirst() + countStarts(launch_.after, candidateSlot);
    expect(ran <= 3 + launch_.restartsBefore, threeStarts);
    if (!after_) return;
    const bool onTrial = after_->candidate == candidateSlot;
    if (onTrial) expect(after_->attemptCount + launch_.restarts >= ran, countedFirst);
    const std::size_t cutShort = launch_.kills + launch_.lostStarts;
    if (onTrial) expect(after_->attemptCount <= ran + cutShort, onePerKill);
    if (contains(after_->rejected, candidateSlot)) expect(ran + cutShort >= 3, onePerKill);
  }

  const Judged& launch_;
  std::optional<BootState> before_;
  std::optional<BootState> after_;
  std::vector<std::string> broken_ = {};
};

}  // namespace

std::vector<std::string> brokenPromises(const Judged& launch) { return Judge(launch).judge(); }

}  // namespace end_to_end::kills
