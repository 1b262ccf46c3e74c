#include "tests/sweeps/random_life.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <utility>

#include "slots/file_names.h"
#include "state/pending_request.h"
#include "tests/sweeps/blows.h"
#include "tests/sweeps/digest.h"
#include "tests/sweeps/installation.h"
#include "tests/sweeps/life_runtimes.h"
#include "tests/sweeps/scene.h"

namespace launcher_stub::sweeps {
namespace {

using sim::SimOs;

constexpr std::uint64_t hour = 3'600'000;
constexpr std::uint64_t longestRun = 200 * hour;  // with the machine asleep now and then
constexpr std::uint64_t calmAfter = 120'000;      // by then nothing is held any more and no runtime lingers
constexpr std::size_t tracesKept = 8;
constexpr std::uint64_t disksDigestedOneIn = 32;

class RandomLife {
 public:
  RandomLife(std::uint64_t seed, Tracing tracing)
      : scene_(seed),
        tracing_(tracing),
        installation_(scene_, [this](const std::string& slot) { return runtimes_.draw(slot); }),
        runtimes_(scene_, installation_),
        blows_(scene_, installation_) {
    report_.seed = seed;
    report_.plan = describe(scene_.plan);
  }
  ~RandomLife() { shutDown(); }

  LifeReport live(std::uint64_t launches) {
    startMachine(nullptr);
    installation_.layOut();
    scene_.ledger->stateWasChangedByOthers();
    while (report_.launches < launches && report_.findings.empty()) launchOnce();
    addDisk();
    shutDown();
    report_.digest = digest_.value();
    report_.reached = std::move(scene_.reached);
    for (const std::string& trace : traces_) report_.trace += trace;
    return std::move(report_);
  }

 private:
  void startMachine(const World* world);
  void shutDown();
  void launchOnce();
  void pauseBetween();
  void disturbedLaunch();
  void quietLaunches();
  void markRequest();
  void markLines();
  void endLaunch();
  void endSuspendedChildren();
  void keepTrace();
  void addDisk();

  Scene scene_;
  Tracing tracing_;
  Installation installation_;
  LifeRuntimes runtimes_;
  Blows blows_;
  Digest digest_;
  LifeReport report_;
  std::deque<std::string> traces_;
};

// A machine that starts again has a clock of its own, low or high; times of files go on.
void RandomLife::startMachine(const World* world) {
  const std::uint64_t fileTime = world != nullptr ? scene_.machine->fileTime() + 200'000'000 : 0;
  shutDown();
  const std::uint64_t bootedFor =
      scene_.chance.oneIn(2) ? scene_.chance.between(1, 60'000) : scene_.chance.below(hour * 24 * 365);
  scene_.machine = std::make_unique<SimOs>(bootedFor);
  SimOs& machine = *scene_.machine;
  machine.setTracing(tracing_ == Tracing::on);
  machine.setTimeLimit(longestRun);
  machine.setRandomSeed(scene_.chance.bits());
  machine.setVolumeKeepsLists(scene_.plan.volumeKeepsLists);
  machine.setMemberOfAdministrators(scene_.plan.memberOfAdministrators);
  if (world != nullptr) {
    machine.setFileTime(fileTime);
    machine.disk() = world->disk;
    machine.disk().settle();
  }
  installation_.setScripts();
  scene_.ledger = std::make_unique<Ledger>(machine, world != nullptr ? world->history : History{});
  ++report_.machines;
}

void RandomLife::shutDown() {
  if (!scene_.machine) return;
  scene_.ledger.reset();
  report_.calls += scene_.machine->calls();
  (void)scene_.machine->takeProblems();  // reported already, or of a machine without power
  scene_.machine.reset();
}

void RandomLife::launchOnce() {
  scene_.launch = ++report_.launches;
  scene_.machine->clearRecords();
  try {
    blows_.calmDown();
    pauseBetween();
    installation_.repairHopelessState();
    scene_.quiet = scene_.chance.oneIn(scene_.plan.quietOneIn);
    if (scene_.quiet) {
      quietLaunches();
    } else {
      disturbedLaunch();
    }
    endLaunch();
  } catch (const PowerGone&) {
    endLaunch();
    if (!report_.findings.empty()) return;  // this machine is still to be looked at
    const World world = std::move(*std::exchange(scene_.afterTheCut, std::nullopt));
    startMachine(&world);
  }
}

void RandomLife::pauseBetween() {
  Chance& chance = scene_.chance;
  scene_.machine->advance(chance.oneIn(50) ? chance.below(30 * hour) : chance.spread(20, 60'000));
  if (chance.oneIn(4)) installation_.makeGood();
}

void RandomLife::disturbedLaunch() {
  Chance& chance = scene_.chance;
  bool failures = false;
  for (std::uint64_t left = chance.below(scene_.plan.mostBlows + 1u); left > 0; --left) {
    const int blow = chance.weighted(scene_.plan.blows);
    if (blow < 0) continue;
    const Blow one = static_cast<Blow>(blow);
    failures = failures || one == Blow::callFails || one == Blow::outageAtCall || one == Blow::outageAtTime ||
               one == Blow::startFailsInOutage;
    blows_.prepare(one);
  }
  scene_.ledger->allow({failures, failures, failures});
  markRequest();
  scene_.machine->runLauncher();
  if (scene_.machine->lastRun().killed) scene_.mark("launcher killed");
}

// Two launches that nothing disturbs: the first does what can be done, the second finds nothing to repair.
void RandomLife::quietLaunches() {
  SimOs& machine = *scene_.machine;
  machine.advance(calmAfter);
  installation_.makeGood();
  scene_.ledger->allow({});
  scene_.mark("undisturbed launches");
  scene_.findings += undisturbedLaunch(machine, *scene_.ledger);
  markLines();
  for (const std::string& name : scene_.ledger->takeReached()) scene_.mark(name);
  keepTrace();
  machine.clearRecords();
  machine.advance(1'000);
  scene_.findings += undisturbedLaunch(machine, *scene_.ledger);
  if (scene_.ledger->reached().contains("recovery") && !scene_.ledger->reached().contains("generation overflow")) {
    scene_.findings += "the launch after a recovery found something to repair\n";
  }
}

// In which condition the launch finds a request.
void RandomLife::markRequest() {
  SimOs& machine = *scene_.machine;
  const std::string document = machine.read(machine.statePath(files::pendingRequest));
  const std::optional<BootState> state = machine.bootState();
  if (document.empty() || !state) return;
  PendingRequest request;
  std::string error;
  if (!readPendingRequest(document, request, error)) return scene_.mark("request that cannot be read");
  if (request.expectedGeneration != state->generation) return scene_.mark("request of another generation");
  if (request.requestId == state->lastRequestId) return scene_.mark("request left again");
  if (std::ranges::find(state->rejected, request.candidate) != state->rejected.end()) {
    return scene_.mark("request for a rejected slot");
  }
  if (!machine.exists(machine.slotPath(request.candidate, files::complete))) {
    scene_.mark("request for an incomplete slot");
  }
}

void RandomLife::markLines() {
  struct Case {
    std::string_view begin;
    std::string_view end;
    std::string_view mark;
  };
  static constexpr Case cases[] = {
      {"launch transition", "; exiting", "launch transition given up"},
      {"spawn failure transition", "; exiting", "spawn failure transition given up"},
      {"exit transition", "; exiting", "exit transition given up"},
      {"tick metadata", "; dropping write", "tick write dropped"},
  };
  for (const sim::TimedText& line : scene_.machine->timedLines()) {
    for (const Case& one : cases) {
      if (line.text.starts_with(one.begin) && line.text.ends_with(one.end)) scene_.mark(one.mark);
    }
  }
  if (!scene_.machine->boxes().empty()) scene_.mark("error box shown");
}

// Such a child holds the lease until somebody ends it.
void RandomLife::endSuspendedChildren() {
  for (const std::uint32_t pid : scene_.machine->processes().living()) {
    if (!scene_.machine->processes().find(pid)->suspended) continue;
    scene_.mark("suspended child left where containment was refused");
    scene_.machine->endProcess(pid, 1);
  }
}

// What the launch was like, for the digest; what was wrong with it; what it has reached.
void RandomLife::endLaunch() {
  SimOs& machine = *scene_.machine;
  markLines();
  if (machine.lastRun().killed) endSuspendedChildren();
  for (const std::string& name : scene_.ledger->takeReached()) scene_.mark(name);
  digest_.add(machine.calls());
  digest_.add(machine.now());
  digest_.add(static_cast<std::uint64_t>(machine.lastRun().exitCode));
  if (report_.launches % disksDigestedOneIn == 0) addDisk();

  report_.findings = std::exchange(scene_.findings, "") + scene_.ledger->report();
  if (!scene_.afterTheCut) {  // without power nothing is closed as it should be
    for (const std::string& problem : machine.takeProblems()) report_.findings += problem + "\n";
  }
  keepTrace();
}

void RandomLife::keepTrace() {
  if (tracing_ == Tracing::off) return;
  traces_.push_back("launch " + std::to_string(report_.launches) + ", " + scene_.machine->trace());
  if (traces_.size() > tracesKept) traces_.pop_front();
}

void RandomLife::addDisk() {
  for (const auto& [key, node] : scene_.machine->disk().nodes()) {
    digest_.add(key);
    digest_.add(node);
    digest_.add(node.lastWriteTime);
  }
}

}  // namespace

LifeReport liveRandomly(std::uint64_t seed, std::uint64_t launches, Tracing tracing) {
  return RandomLife(seed, tracing).live(launches);
}

const std::vector<std::string_view>& toBeReached() {
  static const std::vector<std::string_view> names = {
      // what the launcher does
      "first run", "seed started", "slot started", "candidate started", "promotion",
      "promoted in the tick before the end", "end seen by the promotion's guard", "rejection after the third start",
      "rejection at the start", "oldest rejected slot dropped", "candidate timed out", "request taken in",
      "restart honoured", "start un-counted", "recovery", "both state files unreadable",
      "fell through to the previous slot", "fell through to the seed", "no runnable runtime", "generation overflow",
      "state lock timeout", "another launcher holds the lease", "tree could not be ended", "ended with the runtime",
      "failed before the first start", "ended by an exception", "error box shown", "launch transition given up",
      "spawn failure transition given up", "exit transition given up", "tick write dropped",
      // what it says
      "line: missing bootstrap-v1.json", "line: invalid bootstrap-v1.json: ", "line: cannot create private state root",
      "line: cannot acquire launch lease", "line: cannot write launcher state", "line: launch transition write failed",
      "line: spawn failure transition write failed", "line: exit transition write failed",
      "line: tick metadata write failed", "line: cannot start ", "line: ignoring slot ",
      "line: cannot prune old attempt: ", "line: filesystem does not provide persistent state root ACLs",
      "line: filesystem did not persist the private directory ACL",
      "line: reset state root DACL to current user and system principals",
      "line: state root belongs to another account", "line: cannot duplicate the launch lease: Win32 error ",
      "line: cannot build the handle list: Win32 error ", "line: cannot create child job",
      // what happens to it
      "request of another generation", "request left again", "request for a rejected slot",
      "request for an incomplete slot", "request that cannot be read", "launcher killed", "power cut at a change",
      "power cut at a time", "power cut between launches", "machine restarted", "machine slept in a launch",
      "single failing call", "second launcher lived a whole life", "second launcher turned away", "state damaged",
      "both state files damaged", "state repaired by the support", "seed replaced by a newer installer",
      "bootstrap of a newer major", "session of hours", "undisturbed launches"};
  return names;
}

}  // namespace launcher_stub::sweeps
