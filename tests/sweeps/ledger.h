// What must hold in every life of an installation, whatever happens in it: the launcher's promises, checked while it
// runs on the simulated machine.
//
// A ledger watches one machine and knows the history before it, so that a promise can span crashes. Each promise stands
// in plain words beside its check in ledger.cpp; `promises` lists them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "state/boot_state.h"
#include "tests/simulation/sim_os.h"

namespace launcher_stub::sweeps {

// What has to be remembered from one life of a machine to the next.
struct History {
  std::string trial;            // which trial is on: candidate, request and generation of its taking in
  int trialStarts = 0;          // starts of the candidate that count
  std::set<std::string> taken;  // request documents that were taken in: "id@expected generation"

  bool operator==(const History&) const = default;
};

class Ledger : public sim::Observer {
 public:
  // Watches `machine` from now on; both must stay alive as long. `history`: empty for the machine's first life, in
  // which what lies on its disk is taken as given.
  explicit Ledger(sim::SimOs& machine, History history = {});
  ~Ledger() override;
  Ledger(const Ledger&) = delete;
  Ledger& operator=(const Ledger&) = delete;

  // A run may leave temporary files (their deletion fails), may end by an exception, may lose lines.
  struct Allowances {
    bool temporaryFiles = false;
    bool exceptions = false;
    bool lostLines = false;
  };
  void allow(const Allowances& allowances) { allowances_ = allowances; }

  // Somebody else has changed the state files: what the disk now says is taken as given.
  void stateWasChangedByOthers();

  // Promises that were broken, each with the time and what was seen. Empty is what it should be.
  const std::vector<std::string>& violations() const { return violations_; }
  std::string report() const;

  // The history that belongs to a disk which a crash leaves now.
  History historyAt(const sim::Disk& disk) const;

  // A disk that a crash has left: true where each state file is the last one that was written, or the one that was
  // being written.
  bool isOldOrNew(const sim::Disk& disk) const;

  // Called before and after each change, when the next thing could be a crash.
  void whenCutOff(std::function<void()> action) { whenCutOff_ = std::move(action); }

  // Called in the moment of each call of the platform.
  void whenCalled(std::function<void(sim::Call, std::wstring_view)> action) { whenCalled_ = std::move(action); }

  // What the runs so far have shown, by name; for tests that want to know whether they got there.
  const std::set<std::string>& reached() const { return reached_; }
  std::set<std::string> takeReached() { return std::exchange(reached_, {}); }  // and forgets it

  // The slot that an undisturbed launch can start, by a look at the disk that shares no code with the launcher: any of
  // active, previous, the seed. Empty: none of them.
  std::string startable() const;

 private:
  void launcherStarts() override;
  void calls(sim::Call call, std::wstring_view path) override {
    if (whenCalled_) whenCalled_(call, path);
  }
  void fails(sim::Call call, std::wstring_view path, std::uint32_t code) override;
  void reads(const std::wstring& path, bool whole) override;
  void polls(const sim::Process& child) override;
  void mayBeCutOff() override {
    if (whenCutOff_) whenCutOff_();
  }
  void sleeps() override;
  void replaces(const std::wstring& path, std::string_view contents) override;
  void replaced(const std::wstring& path, std::string_view contents) override;
  void starts(const sim::Start& start) override;
  void launcherEnded(const sim::RunOutcome& outcome) override;

  // A state file and what may be found in it.
  struct Document {
    std::string last;      // bytes as they were written last, or found
    std::string inFlight;  // bytes that are being written; empty for none
  };

  void broken(const std::string& promise);
  void expect(bool holds, const char* promise) {
    if (!holds) broken(promise);
  }
  bool isStateFile(const std::wstring& path, std::wstring_view name) const;
  void takeDiskAsGiven();
  void goOnFrom(const BootState& state, bool fromPrevious);
  void checkReplacement(const BootState& next, const std::optional<BootState>& onDisk);
  void checkPromotion(const BootState& next);
  void checkTakeIn(const BootState& next);
  void checkUncounting(const BootState& next);
  History historyAfter(const BootState& next) const;
  std::uint32_t countBefore(const BootState& next) const;
  bool hasFailed(std::initializer_list<sim::Call> calls) const;
  bool mayThrow() const;
  bool leaseIsHeld() const;
  std::ptrdiff_t livingOfThisRun() const;  // processes
  bool mayLoseLines() const;
  void readsMarker(const std::wstring& path);
  void takeOverWhatWasInFlight();
  void reachedByItsEnd(const sim::Process& child);
  void checkOutcome(const sim::RunOutcome& outcome);
  void checkLines(const std::vector<std::string>& lines);
  std::vector<std::string> linesOfRun() const;
  int temporaryFiles() const;
  bool isComplete(const std::string& slot) const;  // and of the seed's delivery

  sim::SimOs& machine_;
  History history_;
  Allowances allowances_;
  std::function<void()> whenCutOff_;
  std::function<void(sim::Call, std::wstring_view)> whenCalled_;
  std::vector<std::string> violations_;
  std::set<std::string> reached_;

  Document boot_;
  Document previous_;
  // One run of the launcher's process; a second launcher's lies on top of the first one's.
  struct Run {
    std::optional<BootState> current;       // in force: read by this iteration, or written last
    bool iterationBegins = true;            // the next reading of "boot-v1.json" begins one
    bool probing = false;                   // "boot-v1.json" gave no state; it is read once more for its generation
    bool fromPrevious = false;              // this iteration goes on from the previous copy
    std::uint64_t floor = 0;                // the generation that could still be told of it
    std::optional<History> beforeRecovery;  // while it goes on from the previous copy and has not written that yet
    std::string tookIn;                     // the request document that this iteration has taken in
    bool counted = false;                   // a start of the candidate has been counted and has not come about yet
    std::optional<sim::Start> running;      // started last
    bool runsAsCandidate = false;
    bool aliveAtLastPoll = false;
    std::optional<std::uint64_t> healthySeenAt;  // ms; a matching marker was read
    std::optional<std::uint64_t> promotedAt;     // ms
    bool sleptSincePoll = true;
    std::set<sim::Call> failed;   // kinds of calls that a fault has struck
    bool leaseBusy = false;       // its try for the lease met a sharing violation that was switched on
    bool restartUnknown = false;  // whether the runtime left a restart request could not be asked
    int number = 0;
    int temporariesBefore = 0;
  };
  Run& run() { return runs_.back(); }
  const Run& run() const { return runs_.back(); }
  std::vector<Run> runs_;
};

// The promises, as they appear in violations.
extern const std::vector<std::string_view> promises;

}  // namespace launcher_stub::sweeps
