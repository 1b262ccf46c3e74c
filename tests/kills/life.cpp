#include "tests/kills/life.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>

#include "tests/kills/excuses.h"
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
constexpr std::size_t mostStartsOfALaunch = 6;

constexpr const char* cannotStart = "cannot start ";
constexpr const char* nothingToStart = "No runnable runtime";
constexpr const char* systemRefused = ": Win32 error 1359";  // an internal error of the system

// The step that the launch has reached, the last one unless it was cut short.
std::optional<std::size_t> stepReached(const Foretold& foretold, const Found& found, bool cutShort) {
  for (std::size_t i = foretold.steps.size(); i > 0; --i) {
    if (fits(foretold.steps[i - 1].world, found)) return i - 1;
    if (!cutShort) break;
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
  Life(Stage& stage, const Kind& kind, std::uint64_t seed)
      : stage_(stage), kind_(kind), chance_(seed), told_(kind.told) {
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
    for (;;) {
      try {
        return std::make_unique<WatchedLauncher>(*installation_);
      } catch (const std::runtime_error& error) {
        if (!mayExcuse(Excuse::launcherNotStarted)) throw;
        report_.failedStarts.emplace_back(error.what());
      }
    }
  }

  void launchAndKill() {
    const Foretold foretold = foretell(world_, kind_.acts, told_);
    if (told_) tellToFinish();
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
    told_ = true;
    tellToFinish();
    const Foretold foretold = foretell(world_, kind_.acts, told_);
    const Found before = look(*installation_);
    const auto watched = start();
    if (!watched->launcher().process().endsWithin()) return find("the next launch does not end");
    judge(foretold, before, *watched, false);
  }

  // What the launch was to go through; when the system lost runtimes, with these losses.
  struct Losses {
    Foretold foretold;
    std::size_t starts = 0;
  };

  void judge(const Foretold& foretold, const Found& before, WatchedLauncher& watched, bool killed) {
    judgeEnd(watched);
    const Found after = lookAgain(*installation_, before);
    learnStartTime(before, after, watched.startedAt());
    const bool endedBySystem = !killed && isLostLauncher(before, after, watched.launcher());
    const bool cutShort = killed || endedBySystem;
    if (cutShort) ++cutShort_;
    const Losses losses = lossesOf(foretold, before, after, watched.launcher(), killed);
    judgePromises(before, after, cutShort, losses.starts);
    judgeDisk(losses.foretold, after, cutShort);
    judgeOutcome(losses, watched.launcher(), cutShort);
    if (!report_.findings.empty()) {
      return find(std::string(killed ? "after the kill" : "after a launch in peace") + ": " + describe(after));
    }
    // On the very disk at which it ended: if that is what it cannot bear, it ends there again, unexcused.
    if (endedBySystem && !report_.spoilsStage) launchInPeace();
  }

  void judgeEnd(const WatchedLauncher& watched) {
    const std::uint64_t end = milliseconds();
    if (!watched.treeEndsWithin(treeEndLimitMs)) return judgeSurvivors(watched.survivors());
    report_.slowestEndMs = std::max(report_.slowestEndMs, milliseconds() - end);
    const auto leaseIsFree = [&] { return openExclusively(installation_->inRoot(L"launch.lock")) != nullptr; };
    if (isPresent(installation_->stateRoot()) && !waitUntil(leaseIsFree, leaseLimitMs)) find("the lease is not free");
  }

  // Remains hold the lease, as a rule; that is all they excuse.
  void judgeSurvivors(const WatchedLauncher::Survivors& survivors) {
    report_.spoilsStage = true;
    if (survivors.living == 0 && survivors.remains > 0) {
      report_.lost = "remains of a process that was being created";
    } else {
      find(std::to_string(survivors.living) + " processes of the tree outlive the launcher");
    }
  }

  void judgePromises(const Found& before, const Found& after, bool cutShort, std::size_t lostStarts) {
    const Restarts asked = restartsAsked();
    const std::size_t restarts = asked.before + asked.ofLast;
    const bool lastHasBegun = asked.begun == countOf(after.startedSlots(), candidateSlot);
    for (const std::string& promise : brokenPromises({.kind = kind_,
                                      .before = before,
                                      .after = after,
                                      .killed = cutShort,
                                      .kills = cutShort_,
                                      .lostStarts = lostStarts,
                                      .restarts = restarts,
                                      .restartsBefore = lastHasBegun ? asked.before : restarts,
                                      .soaked = hasSoaked()})) {
      find("broken: " + promise);
    }
  }

  void judgeDisk(const Foretold& foretold, const Found& after, bool cutShort) {
    const std::optional<std::size_t> step = stepReached(foretold, after, cutShort);
    if (!step) {
      return find("the disk is as no moment of the launch leaves it; it was to go through" + listOf(foretold, after));
    }
    world_ = foretold.steps[*step].world;
    if (world_.pruning) world_.attempts = leftByPruning(after);
    if (!cutShort || !report_.lost.empty()) return;
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

  void judgeOutcome(const Losses& losses, const Launcher& launcher, bool cutShort) {
    for (const std::string& line : launcher.lines()) {
      const bool tellsOfLoss = losses.starts > 0 && (line.starts_with(cannotStart) || line == nothingToStart);
      if (!tellsOfLoss) find("printed: " + line);
    }
    if (cutShort) return;
    const std::uint32_t code = launcher.exitCode();
    const std::optional<int> expected = losses.foretold.exitCode;
    if (!expected) return find("ended by itself, with exit code " + std::to_string(code));
    if (code != static_cast<std::uint32_t>(*expected)) {
      find("exit code " + std::to_string(code) + " instead of " + std::to_string(*expected));
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

  // Wine now and then ends a program in the first moments of its life, without a word, or fails to start one. A life in
  // which that happens says less than others: it is lived again, and how often that may be is limited. But it is judged
  // like any other, by what such a loss has to lead to. Of the launcher it shows as an end before the first attempt,
  // with neither of the codes with which it ends there by itself; it is judged like a killed one.
  bool isLostLauncher(const Found& before, const Found& after, const Launcher& launcher) {
    const bool started = after.newAttempts > 0 || after.starts.size() != before.starts.size();
    if (started || launcher.exitCode() <= 1 || !launcher.lines().empty()) return false;
    if (!mayExcuse(Excuse::launcherEnded)) return false;
    report_.lost = "a launcher, exit code " + std::to_string(launcher.exitCode());
    return true;
  }

  // A lost runtime shows as an attempt of whose start nothing was recorded, though another moment than that of the
  // start was reached; or as the error with which the system refused. It is believed only if the launcher then did what
  // it has to do about a runtime that fails at once.
  Losses lossesOf(const Foretold& foretold, const Found& before, const Found& after, const Launcher& launcher,
                  bool killed) {
    const std::vector<std::string> lines = launcher.lines();
    const std::size_t starts = after.starts.size() - before.starts.size();
    const bool refused =
        !lines.empty() && lines.front().starts_with(cannotStart) && lines.front().ends_with(systemRefused);
    const bool otherLine =
        std::any_of(lines.begin(), lines.end(), [](const std::string& line) { return line != nothingToStart; });
    const bool silent = !otherLine && starts < after.newAttempts && !stepReached(foretold, after, killed);
    if (refused || silent) {
      for (const LostStarts& lost : possibleLosses()) {
        const Foretold then = foretell(world_, kind_.acts, told_, lost);
        if (!stepReached(then, after, killed)) continue;
        report_.lost = refused ? lines.front() : "a runtime";
        return {then, lost.size()};
      }
    }
    return {foretold};
  }

  static std::vector<LostStarts> possibleLosses() {
    std::vector<LostStarts> losses;
    for (std::size_t first = 1; first <= mostStartsOfALaunch; ++first) losses.push_back({first});
    for (std::size_t first = 1; first <= mostStartsOfALaunch; ++first) {
      for (std::size_t second = first + 1; second <= mostStartsOfALaunch; ++second) losses.push_back({first, second});
    }
    return losses;
  }

  Stage& stage_;
  const Kind& kind_;
  Chance chance_;
  std::size_t cutShort_ = 0;  // launches
  Installation* installation_ = nullptr;
  World world_ = {};
  bool told_;  // the runtimes, to finish
  LifeReport report_ = {};
};

}  // namespace

LifeReport live(Stage& stage, const Kind& kind, std::uint64_t seed, std::size_t mostKills) {
  return Life(stage, kind, seed).live(mostKills);
}

}  // namespace end_to_end::kills
