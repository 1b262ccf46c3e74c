#include "tests/kills/life.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>

#include "tests/kills/moment.h"
#include "tests/kills/promises.h"
#include "tests/kills/watched_launcher.h"

namespace end_to_end::kills {
namespace {

using launcher_stub::sweeps::Chance;

constexpr std::uint32_t treeEndLimitMs = 10'000;  // the system ends the tree at once; a busy machine takes its time
constexpr std::uint32_t leaseLimitMs = 2'000;
constexpr std::uint64_t soakMs = 60'000;
constexpr std::size_t triesToKill = 8;
constexpr int mostTriesToStart = 3;

constexpr const char* systemRefused = ": Win32 error 1359";  // an internal error of the system

std::optional<std::size_t> lastFitting(const Foretold& foretold, const Found& found) {
  for (std::size_t i = foretold.steps.size(); i > 0; --i) {
    if (fits(foretold.steps[i - 1].world, found)) return i - 1;
  }
  return std::nullopt;
}

// Of the steps with as many starts as were found, which are those that come into question.
std::string listOf(const Foretold& foretold, const Found& found) {
  std::string text;
  for (const Step& step : foretold.steps) {
    if (step.world.starts.size() != found.starts.size()) continue;
    text += "\n    " + std::string(nameOf(step.change)) + ": " + describe(step.world);
  }
  return text;
}

Moment momentOfPromotion(Chance& chance, const Foretold& foretold) {
  std::size_t started = foretold.steps.size();
  while (foretold.steps[--started].change != Change::runtimeStarted) {}
  if (chance.oneIn(2)) return {started, 1'000 * chance.between(soakMs - 200, soakMs + 900)};
  return {foretold.steps.size() - 1 - chance.below(2), chance.below(5'000)};
}

class Life {
 public:
  Life(Stage& stage, const Kind& kind, std::uint64_t seed) : stage_(stage), kind_(kind), chance_(seed) {
    report_.kind = kind.name;
    report_.seed = seed;
  }

  LifeReport live(std::size_t mostKills) {
    installation_ = &stage_.layOut(kind_, chance_.oneIn(3));
    world_ = kind_.world;
    std::size_t wanted = 1;
    while (wanted < mostKills && chance_.oneIn(2)) ++wanted;
    for (std::size_t i = 0; i < triesToKill && report_.kills.size() < wanted && isFine(); ++i) launchAndKill();
    if (isFine() && report_.kills.empty()) find("it was over before it could be killed, each time");
    if (isFine()) launchInPeace();
    return std::move(report_);
  }

 private:
  bool isFine() const { return report_.findings.empty() && report_.lost.empty(); }

  void find(const std::string& what) { report_.findings.push_back(what); }

  void tellToFinish() { writeFile(installation_->directory() + L"\\" + finishFile, {}); }

  std::uint64_t expectedLength(const Foretold& foretold) const {
    std::uint64_t starts = 0;
    for (const Step& step : foretold.steps) starts += step.change == Change::runtimeStarted ? 1 : 0;
    const std::uint64_t looks = starts - (foretold.exitCode ? 0 : 1);  // one look of the launcher for each end
    return stage_.startMs() + (starts - 1) * stage_.startMs() / 2 + looks * 250 + 150;
  }

  // On a busy machine Wine now and then fails to start a program; nothing of it has run then.
  std::unique_ptr<WatchedLauncher> start() {
    for (int tries = 1; tries < mostTriesToStart; ++tries) {
      try {
        return std::make_unique<WatchedLauncher>(*installation_);
      } catch (const std::runtime_error&) {
        ++report_.failedStarts;
      }
    }
    return std::make_unique<WatchedLauncher>(*installation_);
  }

  void launchAndKill() {
    const Foretold foretold = foretell(world_, kind_.acts, kind_.told);
    if (kind_.told) tellToFinish();
    const bool soaks = foretold.steps.back().change == Change::promoted;
    const Moment moment =
        soaks ? momentOfPromotion(chance_, foretold) : drawMoment(chance_, foretold, expectedLength(foretold));
    report_.moment = describe(moment, foretold);
    const Found before = look(*installation_);
    ChangeSensor sensor(*installation_);

    const auto watched = start();
    (void)await(moment, foretold, sensor, watched->launcher().process());  // the kill shows how it ended
    const bool killed = watched->kill();
    if (!killed) ++report_.tooLate;
    judge(foretold, before, *watched, killed);
  }

  void launchInPeace() {
    tellToFinish();
    const Foretold foretold = foretell(world_, kind_.acts, true);
    const Found before = look(*installation_);
    const auto watched = start();
    if (!watched->launcher().process().endsWithin()) return find("the next launch does not end");
    judge(foretold, before, *watched, false);
  }

  void judge(const Foretold& foretold, const Found& before, WatchedLauncher& watched, bool killed) {
    const std::uint64_t end = milliseconds();
    if (!watched.treeEndsWithin(treeEndLimitMs)) return judgeSurvivors(watched.survivors());
    report_.slowestEndMs = std::max(report_.slowestEndMs, milliseconds() - end);
    const auto leaseIsFree = [&] { return openExclusively(installation_->inRoot(L"launch.lock")) != nullptr; };
    if (isPresent(installation_->stateRoot()) && !waitUntil(leaseIsFree, leaseLimitMs)) find("the lease is not free");

    const Found after = lookAgain(*installation_, before);
    learnStartTime(before, after, watched.startedAt());
    judgePromises(before, after, killed);
    judgeDisk(foretold, after, killed);
    judgeOutcome(foretold, watched.launcher(), killed);
    if (!isFine()) excuseLosses(before, after, watched.launcher(), killed);
    if (!report_.findings.empty())
      find(std::string(killed ? "after the kill" : "after a launch in peace") + ": " + describe(after));
  }

  void judgeSurvivors(const WatchedLauncher::Survivors& survivors) {
    report_.spoilsStage = true;  // the lease is held, as a rule
    if (survivors.living == 0 && survivors.remains > 0) {
      report_.lost = "remains of a process that was being created";
    } else {
      find(std::to_string(survivors.living) + " processes of the tree outlive the launcher");
    }
  }

  void judgePromises(const Found& before, const Found& after, bool killed) {
    const Restarts asked = restartsAsked();
    const std::size_t restarts = asked.before + asked.ofLast;
    const bool lastHasBegun = asked.begun == countOf(after.startedSlots(), candidateSlot);
    const std::size_t kills = report_.kills.size() + (killed ? 1 : 0);
    for (const std::string& promise : brokenPromises({.kind = kind_,
                                      .before = before,
                                      .after = after,
                                      .killed = killed,
                                      .kills = kills,
                                      .restarts = restarts,
                                      .restartsBefore = lastHasBegun ? asked.before : restarts,
                                      .soaked = hasSoaked()})) {
      find("broken: " + promise);
    }
  }

  void judgeDisk(const Foretold& foretold, const Found& after, bool killed) {
    std::optional<std::size_t> step = lastFitting(foretold, after);
    const bool mustBeTheLast = !killed;
    if (!step || (mustBeTheLast && *step + 1 != foretold.steps.size())) {
      return find("the disk is as no moment of the launch leaves it; it was to go through" + listOf(foretold, after));
    }
    world_ = foretold.steps[*step].world;
    if (world_.pruning) world_.attempts = leftByPruning(after);
    if (!killed) return;
    const Change last = foretold.steps[*step].change;
    report_.kills.push_back({report_.moment, landingOf(last, after), last});
  }

  // By their times: one that was being removed when the launcher was killed is the newest now, since the removal of a
  // file in it was a change.
  static std::vector<bool> leftByPruning(const Found& found) {
    std::vector<bool> attempts;
    for (const Attempt& attempt : found.attempts) attempts.push_back(!attempt.record.empty());
    return attempts;
  }

  void judgeOutcome(const Foretold& foretold, Launcher& launcher, bool killed) {
    for (const std::string& line : launcher.lines()) find("printed: " + line);
    if (killed) return;
    const std::uint32_t code = launcher.exitCode();
    if (!foretold.exitCode) return find("ended by itself, with exit code " + std::to_string(code));
    if (code != static_cast<std::uint32_t>(*foretold.exitCode)) {
      find("exit code " + std::to_string(code) + " instead of " + std::to_string(*foretold.exitCode));
    }
  }

  Landing landingOf(Change change, const Found& after) const {
    switch (change) {
      case Change::nothing:
      case Change::pruning:
      case Change::pruned:
      case Change::previousSaved:
        return Landing::beforeStateWrite;
      case Change::stateWritten:
      case Change::requestRemoved:
      case Change::attemptCreated:
      case Change::recordWritten:
        return Landing::beforeStart;
      case Change::runtimeStarted:
      case Change::requestLeft:
        return hasEnded(after.starts.back().slot) ? Landing::afterRun : Landing::duringRun;
      case Change::promotionCopied:
      case Change::promoted:
        return Landing::duringRun;
      case Change::endRecorded:
        return Landing::afterRun;
    }
    return Landing::duringRun;
  }

  // What its script did last.
  bool hasEnded(const std::string& slot) const {
    const std::vector<std::string> commands = installation_->log(slot).all("at");
    return !commands.empty() &&
           (commands.back().find(" exit") != std::string::npos || commands.back().find(" crash") != std::string::npos);
  }

  static std::size_t countOf(const std::vector<std::string>& slots, const std::string& slot) {
    return static_cast<std::size_t>(std::count(slots.begin(), slots.end(), slot));
  }

  struct Restarts {
    std::size_t begun = 0;   // starts that have got as far as their script
    std::size_t before = 0;  // requests of all but the last of these
    std::size_t ofLast = 0;
  };

  // That the candidate's runtimes had begun to ask for.
  Restarts restartsAsked() const {
    Restarts asked;
    for (const std::string& command : installation_->log(candidateSlot).all("at")) {
      if (command.find(" restart") != std::string::npos) asked.ofLast = 1;
      if (!command.ends_with(beginNote)) continue;
      ++asked.begun;
      asked.before += std::exchange(asked.ofLast, 0);
    }
    return asked;
  }

  bool hasSoaked() const {
    for (const std::string& command : installation_->log(candidateSlot).all("at")) {
      if (command.ends_with(" healthy")) return milliseconds() - std::stoull(command) >= soakMs;
    }
    return false;
  }

  void learnStartTime(const Found& before, const Found& after, std::uint64_t startedAt) {
    if (after.starts.size() <= before.starts.size()) return;
    const std::uint64_t time = after.starts[before.starts.size()].time;
    if (time > startedAt) stage_.learnStartMs(time - startedAt);
  }

  // Wine now and then ends a program in the first moments of its life, without a word, or fails to start one. Of the
  // launcher that shows as an end that changes nothing and has neither of the codes with which it ends before its first
  // start; of a runtime, as an attempt that is followed by another although nothing was recorded of its start, or by
  // the error with which the system refused. Such a life says nothing and is lived again; how often that may happen is
  // limited.
  void excuseLosses(const Found& before, const Found& after, Launcher& launcher, bool killed) {
    const std::vector<std::string> lines = launcher.lines();
    const std::size_t attempts = after.newAttempts;
    const std::size_t starts = after.starts.size() - before.starts.size();
    std::string lost;
    if (!lines.empty()) {
      if (lines.front().ends_with(systemRefused)) lost = lines.front();
    } else if (!killed && attempts == 0 && starts == 0 && launcher.exitCode() > 1) {
      lost = "a launcher, exit code " + std::to_string(launcher.exitCode());
    } else if (starts + (killed ? 1 : 0) < attempts) {
      lost = "a runtime";
    }
    if (lost.empty()) return;
    for (const std::string& finding : report_.findings) lost += " | " + finding.substr(0, finding.find('\n'));
    report_.lost = lost;
    report_.findings.clear();
  }

  Stage& stage_;
  const Kind& kind_;
  Chance chance_;
  Installation* installation_ = nullptr;
  World world_ = {};
  LifeReport report_ = {};
};

}  // namespace

LifeReport live(Stage& stage, const Kind& kind, std::uint64_t seed, std::size_t mostKills) {
  return Life(stage, kind, seed).live(mostKills);
}

}  // namespace end_to_end::kills
