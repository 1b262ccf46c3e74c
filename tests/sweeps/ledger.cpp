#include "tests/sweeps/ledger.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "slots/file_names.h"
#include "state/attempt_record.h"
#include "state/pending_request.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::sweeps {
namespace {

using sim::SimOs;

constexpr std::uint64_t soakMs = 60'000;
constexpr std::uint64_t lastGeneration = std::numeric_limits<std::uint64_t>::max();

constexpr const char* oldOrNew = "a reader finds the old document or the new one";
constexpr const char* neverFalls = "the generation never falls while a state file is readable";
constexpr const char* threeStarts =
    "a candidate is started at most three times for each request that named it, unless it asked for the restart itself";
constexpr const char* countedFirst = "a start of the candidate is counted on the disk before it comes about";
constexpr const char* neverRejected = "a slot on the rejected list is never started as a candidate";
constexpr const char* promotion =
    "a promotion is written only after a matching healthy marker and the full soak, with the child alive at the poll "
    "before it";
constexpr const char* onlyPromotion = "the active slot changes only by a promotion";
constexpr const char* takenOnce = "a request is taken in at most once, and only where it fits";
constexpr const char* disposedOf = "a request that was taken in is off the disk before anything is started";
constexpr const char* uncounted = "a start is un-counted only where the runtime left a restart request";
constexpr const char* noTemporaries =
    "no temporary file is left by a run in which nothing was cut off and no deletion failed";
constexpr const char* oneAtATime = "nothing of the last runtime lives when the next one is started";
constexpr const char* definedEnd = "each outcome has the exit code and the message that are defined for it";

std::optional<BootState> stateOf(const std::string& document) {
  BootState state;
  std::string error;
  if (document.empty() || !readBootState(document, state, error)) return std::nullopt;
  return state;
}

// Of a damaged document, in the form in which the launcher understands it; 0 for none.
std::uint64_t generationTold(const std::string& document) {
  static constexpr std::string_view before = "\"generation\":\"";
  const std::size_t at = document.find(before);
  const bool whole = document.ends_with("\"}");  // what is cut off cannot be understood
  return at == std::string::npos || !whole ? 0 : std::strtoull(document.c_str() + at + before.size(), nullptr, 10);
}

bool contains(const std::vector<std::string>& list, const std::string& entry) {
  return std::find(list.begin(), list.end(), entry) != list.end();
}

// What the look at the state root may say before the lease is asked for.
bool isNotice(const std::string& line) {
  return line.starts_with("filesystem ") || line.starts_with("reset state root DACL ");
}

std::string trialOf(const BootState& state) {
  return state.candidate ? *state.candidate + " for " + state.lastRequestId.value_or("nobody") : std::string();
}

}  // namespace

const std::vector<std::string_view> promises = {oldOrNew,      neverFalls,    threeStarts, countedFirst, neverRejected,
                                                promotion,     onlyPromotion, takenOnce,   disposedOf,   uncounted,
                                                noTemporaries, oneAtATime,    definedEnd};

Ledger::Ledger(SimOs& machine, History history) : machine_(machine), history_(std::move(history)) {
  machine_.observe(this);
  takeDiskAsGiven();
}

Ledger::~Ledger() { machine_.observeNoLonger(); }

void Ledger::broken(const std::string& promise) {
  violations_.push_back("at " + std::to_string(machine_.now()) + " ms: broken: " + promise);
}

std::string Ledger::report() const {
  std::string text;
  for (const std::string& violation : violations_) text += violation + "\n";
  return text;
}

bool Ledger::isStateFile(const std::wstring& path, std::wstring_view name) const {
  if (!path.ends_with(name)) return false;  // quickly: markers are read in every tick
  return sim::pathKey(path) == sim::pathKey(machine_.statePath(name));
}

void Ledger::takeDiskAsGiven() {
  boot_ = {machine_.read(machine_.statePath(files::bootState)), ""};
  previous_ = {machine_.read(machine_.statePath(files::previousBootState)), ""};
  const std::optional<BootState> state = stateOf(boot_.last);
  if (state && history_.trial != trialOf(*state)) {
    // A trial that was begun before anybody watched, or whose taking in a crash cut short: counted as the disk says.
    history_.trial = trialOf(*state);
    history_.trialStarts = static_cast<int>(std::min<std::uint32_t>(state->attemptCount, 3));
  }
}

void Ledger::stateWasChangedByOthers() {
  history_.trial.clear();
  history_.taken.clear();
  takeDiskAsGiven();
}

bool Ledger::isOldOrNew(const sim::Disk& disk) const {
  const auto holds = [&](std::wstring_view name, const Document& document) {
    const sim::Node* node = disk.find(machine_.statePath(name));
    const std::string found = node != nullptr ? node->contents : std::string();
    return found == document.last || (!document.inFlight.empty() && found == document.inFlight);
  };
  return holds(files::bootState, boot_) && holds(files::previousBootState, previous_);
}

bool Ledger::isComplete(const std::string& slot) const {
  const auto delivery = [&](const std::string& of) { return machine_.read(machine_.slotPath(of, files::delivery)); };
  const bool comparesDeliveries = machine_.exists(machine_.slotPath("seed", files::delivery));
  return machine_.exists(machine_.slotPath(slot, files::complete)) &&
         machine_.exists(machine_.slotPath(slot, files::entry)) &&
         (!comparesDeliveries || delivery(slot) == delivery("seed"));
}

std::string Ledger::startable() const {
  const std::optional<BootState> primary = stateOf(machine_.read(machine_.statePath(files::bootState)));
  const std::optional<BootState> state =
      primary ? primary : stateOf(machine_.read(machine_.statePath(files::previousBootState)));
  if (state && state->active && isComplete(*state->active)) return *state->active;
  if (state && state->previous && isComplete(*state->previous)) return *state->previous;
  return machine_.exists(machine_.slotPath("seed", files::entry)) ? "seed" : "";
}

int Ledger::temporaryFiles() const {
  return static_cast<int>(std::ranges::count_if(
      machine_.disk().nodes(), [](const auto& entry) { return entry.first.find(L".tmp-") != std::wstring::npos; }));
}

void Ledger::launcherStarts() {
  runs_.emplace_back();
  run().number = machine_.process().run;
  run().temporariesBefore = temporaryFiles();
}

// An iteration reads "boot-v1.json", then, where that gave nothing, the previous copy, then the first one once more.
void Ledger::reads(const std::wstring& path, bool whole) {
  if (runs_.empty()) return;
  if (whole && path.ends_with(files::healthy)) readsMarker(path);
  const bool isBoot = isStateFile(path, files::bootState);
  if (!isBoot && !isStateFile(path, files::previousBootState)) return;
  const std::optional<BootState> state = whole ? stateOf(machine_.read(path)) : std::nullopt;
  if (isBoot) {
    if (std::exchange(run().probing, false)) {
      run().floor = whole ? generationTold(machine_.read(path)) : 0;
      return;
    }
    if (run().running) reached_.insert("restart honoured");
    if (run().beforeRecovery) history_ = *std::exchange(run().beforeRecovery, std::nullopt);
    run().current.reset();
    run().fromPrevious = false;
    run().floor = 0;
    run().tookIn.clear();
    run().probing = !state;
    run().counted = false;
    if (state) goOnFrom(*state, false);
  } else if (state) {
    goOnFrom(*state, true);
  }
}

void Ledger::goOnFrom(const BootState& state, bool fromPrevious) {
  run().current = state;
  run().fromPrevious = fromPrevious;
  if (fromPrevious) {
    reached_.insert("recovery");
    // The previous copy is all that is known of a damaged state: starts are counted on from what it says. Until that
    // is written nothing has changed: if it never is, the next run may find the state that could not be read.
    if (!run().beforeRecovery) run().beforeRecovery = history_;
    history_.trial = trialOf(state);
    history_.trialStarts = static_cast<int>(std::min<std::uint32_t>(state.attemptCount, 3));
  } else if (history_.trial != trialOf(state)) {
    history_.trial = trialOf(state);  // taken in by a run that ended before it could start anything
    history_.trialStarts = 0;
  }
}

void Ledger::fails(sim::Call call, std::wstring_view path, std::uint32_t code) {
  if (runs_.empty()) return;
  run().failed.insert(call);
  if (code == sim::win32::sharingViolation && path.ends_with(files::launchLock)) run().leaseBusy = true;
  if (call == sim::Call::pollExit) run().aliveAtLastPoll = false;  // nobody knows
  if (call == sim::Call::status && path.ends_with(L"\\restart-v1.json")) run().restartUnknown = true;
}

void Ledger::polls(const sim::Process& child) {
  if (runs_.empty()) return;
  if (!child.alive) reachedByItsEnd(child);
  run().aliveAtLastPoll = child.alive;
  run().sleptSincePoll = false;
}

void Ledger::reachedByItsEnd(const sim::Process& child) {
  const Run& one = run();
  const std::uint64_t now = machine_.now();
  if (one.aliveAtLastPoll && !one.sleptSincePoll) reached_.insert("end seen by the promotion's guard");
  if (one.promotedAt && now - *one.promotedAt <= 250) reached_.insert("promoted in the tick before the end");
  const bool late = one.running && now - one.running->time >= 120'000;
  if (one.runsAsCandidate && !one.promotedAt && child.terminated && late) reached_.insert("candidate timed out");
}

void Ledger::sleeps() {
  if (!runs_.empty()) run().sleptSincePoll = true;
}

void Ledger::replaces(const std::wstring& path, std::string_view contents) {
  if (isStateFile(path, files::previousBootState)) previous_.inFlight = contents;
  if (!isStateFile(path, files::bootState)) return;
  boot_.inFlight = contents;
  const std::optional<BootState> next = stateOf(boot_.inFlight);
  expect(next.has_value(), oldOrNew);
  if (next && !runs_.empty()) checkReplacement(*next, stateOf(machine_.read(path)));
}

void Ledger::replaced(const std::wstring& path, std::string_view contents) {
  if (isStateFile(path, files::previousBootState)) previous_ = {std::string(contents), ""};
  if (!isStateFile(path, files::bootState)) return;
  boot_ = {std::string(contents), ""};
  const std::optional<BootState> next = stateOf(boot_.last);
  if (!next || runs_.empty()) return;
  history_ = historyAfter(*next);
  run().beforeRecovery.reset();
  if (next->candidate && next->attemptCount > countBefore(*next)) run().counted = true;
  if (run().current && next->lastRequestId != run().current->lastRequestId) {
    run().tookIn = machine_.read(machine_.statePath(files::pendingRequest));
  }
  if (run().current && next->active != run().current->active) run().promotedAt = machine_.now();
  run().current = next;
}

void Ledger::checkReplacement(const BootState& next, const std::optional<BootState>& onDisk) {
  // A "boot-v1.json" that could not be read when the iteration began counts as damaged, also when it can be read again:
  // the launcher goes on from the previous copy. One write may have raised the generation twice since (a rejection and
  // a request taken in), so the copy's generation, raised once, may be one less. The second look, which is for the
  // generation alone, understands one that is written as a string; a state that is whole has a number there.
  if (onDisk && !run().fromPrevious) expect(next.generation >= onDisk->generation, neverFalls);
  if (run().fromPrevious) expect(next.generation > run().floor || run().floor == lastGeneration, neverFalls);
  const std::optional<BootState>& current = run().current;
  if (!current) {
    reached_.insert("first run");
    return;
  }
  const bool listWasFull = current->rejected.size() == maxRejectedSlots;
  if (listWasFull && next.rejected != current->rejected) reached_.insert("oldest rejected slot dropped");
  expect(next.generation >= current->generation, neverFalls);
  if (next.candidate && trialOf(next) != trialOf(*current)) checkTakeIn(next);
  checkUncounting(next);
  const bool promotes = current->candidate && !next.candidate && !contains(next.rejected, *current->candidate);
  if (promotes) {
    checkPromotion(next);
  } else {
    expect(next.active == current->active, onlyPromotion);
  }
  if (current->candidate && contains(next.rejected, *current->candidate) && !next.candidate) {
    reached_.insert(run().running ? "rejection after the third start" : "rejection at the start");
  }
}

void Ledger::checkTakeIn(const BootState& next) {
  PendingRequest request;
  std::string error;
  const std::string document = machine_.read(machine_.statePath(files::pendingRequest));
  // A recovery raises the generation before the request is compared.
  const std::uint64_t expected = next.generation - 1;
  const bool fits = readPendingRequest(document, request, error) && request.requestId == next.lastRequestId &&
                    run().current->lastRequestId != request.requestId && isComplete(request.candidate) &&
                    request.candidate == next.candidate && request.expectedGeneration == expected &&
                    !contains(next.rejected, request.candidate);
  expect(fits, takenOnce);
  reached_.insert("request taken in");
  const std::string key = request.requestId + "@" + std::to_string(request.expectedGeneration);
  // The same write again, after a later step of the commit has failed, is no second taking in.
  const bool again = boot_.last == boot_.inFlight;
  expect(again || !history_.taken.contains(key), takenOnce);
}

void Ledger::checkPromotion(const BootState& next) {
  const Run& one = run();
  const bool rightSlot =
      one.running && one.runsAsCandidate && next.active == one.running->slot && next.previous == one.current->active;
  // The runtime may have written over its marker since it was seen: it need not say the same for the whole soak.
  const bool soaked = one.healthySeenAt && machine_.now() - *one.healthySeenAt >= soakMs;
  expect(rightSlot && soaked && one.aliveAtLastPoll && !one.sleptSincePoll, promotion);
  reached_.insert("promotion");
}

void Ledger::readsMarker(const std::wstring& path) {
  Run& one = run();
  if (!one.running || one.healthySeenAt || path != one.running->attemptDirectory + L"\\healthy-v1") return;
  AttemptRecord reference;
  std::string error;
  const bool matches = readAttemptRecord(machine_.read(path), reference, error) &&
                       reference.slot == one.running->slot &&
                       path.ends_with(sim::widen(reference.nonce) + L"\\healthy-v1");
  if (matches) one.healthySeenAt = machine_.now();
}

// The count that `next` goes on from: of the same trial, else none.
std::uint32_t Ledger::countBefore(const BootState& next) const {
  const std::optional<BootState>& current = run().current;
  return current && trialOf(*current) == trialOf(next) ? current->attemptCount : 0;
}

void Ledger::checkUncounting(const BootState& next) {
  if (!next.candidate || next.attemptCount >= countBefore(next)) return;
  // Any request, also one that cannot be read or names another attempt, takes the start out of the count.
  // A file that cannot be asked for counts as being there.
  const bool asked = run().restartUnknown ||
                     (run().running && machine_.exists(run().running->attemptDirectory + L"\\restart-v1.json"));
  expect(asked && next.attemptCount + 1 == countBefore(next), uncounted);
  reached_.insert("start un-counted");
}

// A written state tells whether a start was un-counted, or whether a new trial begins.
History Ledger::historyAfter(const BootState& next) const {
  History after = history_;
  const std::optional<BootState>& current = run().current;
  if (current && next.lastRequestId && next.lastRequestId != current->lastRequestId) {
    after.taken.insert(*next.lastRequestId + "@" + std::to_string(next.generation - 1));
  }
  if (after.trial != trialOf(next)) {
    after.trial = trialOf(next);
    after.trialStarts = 0;
  } else if (next.candidate && next.attemptCount < countBefore(next)) {
    --after.trialStarts;
  }
  return after;
}

History Ledger::historyAt(const sim::Disk& disk) const {
  const sim::Node* node = disk.find(machine_.statePath(files::bootState));
  const bool written = node != nullptr && !boot_.inFlight.empty() && node->contents == boot_.inFlight;
  const std::optional<BootState> next = written ? stateOf(boot_.inFlight) : std::nullopt;
  if (runs_.empty()) return history_;
  return next ? historyAfter(*next) : run().beforeRecovery.value_or(history_);
}

std::ptrdiff_t Ledger::livingOfThisRun() const {
  return std::ranges::count_if(machine_.processes().living(), [&](std::uint32_t pid) {
    return machine_.processes().find(pid)->launcherRun == run().number;
  });
}

void Ledger::starts(const sim::Start& start) {
  if (runs_.empty()) return;
  const std::optional<BootState>& current = run().current;
  const bool isCandidate = current && current->candidate == start.slot;
  const bool isTrusted = current && (current->active == start.slot || current->previous == start.slot);
  run().runsAsCandidate = isCandidate && run().counted;
  expect(livingOfThisRun() == 1, oneAtATime);
  expect(!isCandidate || isTrusted || run().counted, countedFirst);
  const std::string pending = machine_.read(machine_.statePath(files::pendingRequest));
  expect(run().tookIn.empty() || pending != run().tookIn, disposedOf);
  if (run().runsAsCandidate) {
    expect(!contains(current->rejected, start.slot), neverRejected);
    expect(++history_.trialStarts <= 3, threeStarts);
    const std::optional<BootState> stored = stateOf(machine_.read(machine_.statePath(files::bootState)));
    expect(stored && stored->attemptCount >= static_cast<std::uint32_t>(history_.trialStarts), countedFirst);
  }
  const bool fellThrough = current && current->active && current->active != start.slot && !run().runsAsCandidate;
  if (fellThrough) {
    reached_.insert(start.slot == "seed" ? "fell through to the seed" : "fell through to the previous slot");
  }
  const bool gaveNothing = !machine_.bootState() && !machine_.previousState();
  if (!current && gaveNothing) reached_.insert("both state files unreadable");
  run().counted = false;
  run().promotedAt.reset();
  run().healthySeenAt.reset();
  run().aliveAtLastPoll = false;
  run().running = start;
  run().sleptSincePoll = true;
  reached_.insert(run().runsAsCandidate ? "candidate started" : start.slot == "seed" ? "seed started" : "slot started");
}

void Ledger::launcherEnded(const sim::RunOutcome& outcome) {
  if (!outcome.killed) {
    boot_.inFlight.clear();
    previous_.inFlight.clear();
    const bool mayStay = allowances_.temporaryFiles || hasFailed({sim::Call::deleteTemporary});
    if (!mayStay) {
      // Fewer than before: pruning takes along what a crash has left in an old attempt.
      expect(temporaryFiles() <= run().temporariesBefore, noTemporaries);
    }
    checkOutcome(outcome);
    checkLines(linesOfRun());
    history_ = run().beforeRecovery.value_or(history_);
    runs_.pop_back();
    return;
  }
  takeOverWhatWasInFlight();
  const int left = temporaryFiles() - run().temporariesBefore;
  runs_.pop_back();
  // What a killed second launcher has left is not the first one's fault.
  if (!runs_.empty()) run().temporariesBefore += std::max(left, 0);
}

// A launcher that is killed right after its write has been done never says so.
void Ledger::takeOverWhatWasInFlight() {
  expect(isOldOrNew(machine_.disk()), oldOrNew);
  history_ = historyAt(machine_.disk());
  const auto takeOver = [&](std::wstring_view name, Document& document) {
    const bool done = !document.inFlight.empty() && machine_.read(machine_.statePath(name)) == document.inFlight;
    if (done) document = {std::exchange(document.inFlight, ""), ""};
  };
  takeOver(files::bootState, boot_);
  takeOver(files::previousBootState, previous_);
}

bool Ledger::hasFailed(std::initializer_list<sim::Call> calls) const {
  return std::ranges::any_of(calls, [&](sim::Call call) { return run().failed.contains(call); });
}

// Without randomness there is no name for anything; a box that cannot be shown is an error of the library.
bool Ledger::mayThrow() const { return allowances_.exceptions || hasFailed({sim::Call::random, sim::Call::showError}); }

// By another process, when the run asked for it and got no further.
bool Ledger::leaseIsHeld() const {
  const std::wstring key = machine_.disk().resolvedKey(machine_.statePath(files::launchLock));
  return run().leaseBusy || machine_.openFiles().excludes(key, sim::accessReadWrite);
}

bool Ledger::mayLoseLines() const { return allowances_.lostLines || hasFailed({sim::Call::logLine}); }

// Which lines and which box a run may end with, and its exit code.
void Ledger::checkOutcome(const sim::RunOutcome& outcome) {
  const std::vector<std::string> lines = linesOfRun();
  const std::string last = lines.empty() ? "" : lines.back();
  std::vector<std::string> boxes;
  for (const sim::Box& one : machine_.boxes()) {
    if (one.run == run().number) boxes.push_back(one.text);
  }
  const bool boxed = !boxes.empty();
  const std::string box = boxed ? boxes.front() : "";
  const int code = outcome.exitCode;
  const auto ends = [&](const char* what, bool holds) {
    reached_.insert(what);
    expect(holds, definedEnd);
  };

  expect(boxes.size() <= 1, definedEnd);
  if (!outcome.uncaught.empty()) return ends("ended by an exception", mayThrow() && code == 3);
  if (hasFailed({sim::Call::pollExit})) expect(code == 1, definedEnd);  // nothing is supervised blindly
  if (last.ends_with(" write failed for 30 seconds; exiting")) {
    return ends("given up after 30 s of failed writes", code == 1 && boxed);
  }
  const bool lockMissed = !run().running || hasFailed({sim::Call::lockTry});
  const bool timedOutUnheard = mayLoseLines() && !boxed && lockMissed && code == 1;
  if (last == "state lock timeout" || timedOutUnheard) return ends("state lock timeout", code == 1);
  if (box == "No runnable runtime") return ends("no runnable runtime", code == 1);
  if (box == "generation overflow") return ends("generation overflow", code == 1);
  if (!run().running && boxed) {
    // A held lease is silent, unless the try to take it failed for another reason.
    const bool mayComplain = !leaseIsHeld() || hasFailed({sim::Call::lockTry});
    return ends("failed before the first start", code == 1 && (box != "cannot acquire launch lease" || mayComplain));
  }
  if (!run().running && code == 0) {
    return ends("another launcher holds the lease", std::ranges::all_of(lines, isNotice) && !boxed && leaseIsHeld());
  }
  // A wait or a query that fails while the child is watched ends the run with 1 as well.
  if (box == "cannot end runtime process tree" && code == 1) return ends("tree could not be ended", true);
  // Where the run's one box has told of a dropped write, such an end has none, and a lost line leaves no word at all.
  const bool unheard = mayLoseLines() || hasFailed({sim::Call::pollExit, sim::Call::queryJob, sim::Call::terminateJob});
  if (box == "cannot write launcher state" && code == 1 && unheard) return ends("ended unheard", true);
  if (!run().running) return ends("ended without a start", false);
  const sim::Process* child = machine_.processOf(*run().running);
  // Nor has such a run a word left for having nothing more to start, no generation, or a tree that does not end.
  const bool over = child != nullptr && (!child->alive || child->terminated);
  const bool noWordLeft = box == "cannot write launcher state" && code == 1 && over;
  if (noWordLeft) return ends("ended after its one report", true);
  const bool codeUnknown = hasFailed({sim::Call::readExitCode});  // it then counts as 1
  const bool codeFits = child != nullptr && (code == static_cast<int>(child->exitCode) || (codeUnknown && code == 1));
  ends("ended with the runtime", codeFits && !child->alive);
}

std::vector<std::string> Ledger::linesOfRun() const {
  std::vector<std::string> lines;
  for (const sim::TimedText& line : machine_.timedLines()) {
    if (line.run == run().number) lines.push_back(line.text);
  }
  return lines;
}

// No line but those that are defined.
void Ledger::checkLines(const std::vector<std::string>& lines) {
  static constexpr std::string_view known[] = {"missing bootstrap-v1.json",
                                               "invalid bootstrap-v1.json: ",
                                               "cannot create private state root",
                                               "cannot acquire launch lease",
                                               "state lock timeout",
                                               "cannot write launcher state",
                                               "launch transition write failed",
                                               "spawn failure transition write failed",
                                               "exit transition write failed",
                                               "tick metadata write failed",
                                               "cannot end runtime process tree",
                                               "cannot start ",
                                               "ignoring slot ",
                                               "cannot prune old attempt: ",
                                               "No runnable runtime",
                                               "generation overflow",
                                               "filesystem does not provide persistent state root ACLs",
                                               "filesystem did not persist the private directory ACL",
                                               "reset state root DACL to current user and system principals",
                                               "state root belongs to another account",
                                               "cannot duplicate the launch lease: Win32 error ",
                                               "cannot build the handle list: Win32 error ",
                                               "cannot create child job"};
  for (const std::string& text : lines) {
    const auto* found = std::ranges::find_if(known, [&](std::string_view one) { return text.starts_with(one); });
    if (found == std::end(known)) {
      broken(std::string(definedEnd) + ": " + text);
    } else {
      reached_.insert("line: " + std::string(*found));
    }
  }
}

}  // namespace launcher_stub::sweeps
