#include "tests/sweeps/blows.h"

#include "slots/file_names.h"
#include "tests/simulation/sim_paths.h"
#include "tests/simulation/sim_power_cut.h"

namespace launcher_stub::sweeps {
namespace {

using sim::Call;
using sim::SimOs;

constexpr std::uint64_t hour = 3'600'000;
constexpr std::uint64_t callsOfAStart = 110;  // about; what comes later are mostly idle ticks
constexpr std::uint64_t changesOfAStart = 40;

}  // namespace

std::uint64_t Blows::someCall() {
  return scene_.chance.oneIn(4) ? scene_.chance.spread(1, 2'000) : scene_.chance.between(1, callsOfAStart);
}

void Blows::calmDown() {
  SimOs& machine = *scene_.machine;
  machine.clearFaults();
  machine.clearHooks();
  scene_.ledger->whenCutOff(nullptr);
  scene_.ledger->whenCalled(nullptr);
  if (newerBootstrapFor_ > 0 && --newerBootstrapFor_ > 0) return;
  installation_.restoreBootstrap();
}

void Blows::prepare(Blow blow) {
  switch (blow) {
    case Blow::killAtChange:
    case Blow::killAtTime:
    case Blow::powerCutAtChange:
    case Blow::powerCutAtTime:
    case Blow::powerCutBetween:
    case Blow::restartOfTheMachine:
      return prepareCrash(blow);
    case Blow::callFails:
    case Blow::outageAtCall:
    case Blow::outageAtTime:
    case Blow::startFailsInOutage:
    case Blow::secondAtCall:
    case Blow::secondAtTime:
      return prepareFailure(blow);
    case Blow::stateHeld:
    case Blow::lockHeld:
    case Blow::directoryHeld:
    case Blow::executableHeld:
      return prepareHold(blow);
    case Blow::stateDamaged:
    case Blow::previousDamaged:
    case Blow::bothDamaged:
    case Blow::slotDeleted:
    case Blow::executableSpoiled:
    case Blow::seedGone:
    case Blow::seedReplaced:
    case Blow::requestLeft:
      return disturbFiles(blow);
    case Blow::bootstrapNewer:
    case Blow::bootstrapBad:
    case Blow::ownerChanged:
    case Blow::listDrifted:
    case Blow::machineSleeps:
      return disturbSurroundings(blow);
    case Blow::count_:
      return;
  }
}

// --- Crashes ---

void Blows::cutPower() {
  SimOs& machine = *scene_.machine;
  scene_.tell("the power goes");
  const sim::PowerCut cut(machine.disk(), machine.fileTime());
  sim::Disk left = cut.randomImage(
      [this](int count) { return static_cast<int>(scene_.chance.below(static_cast<std::uint64_t>(count))); });
  if (!scene_.ledger->isOldOrNew(left)) scene_.findings += "a reader finds neither the old document nor the new one\n";
  History history = scene_.ledger->historyAt(left);
  scene_.afterTheCut = World{std::move(left), std::move(history)};
  throw PowerGone{};
}

void Blows::atChange(std::uint64_t number, std::function<void()> doing) {
  scene_.ledger->whenCutOff([left = number, doing = std::move(doing)]() mutable {
    if (left > 0 && --left == 0) doing();
  });
}

void Blows::prepareCrash(Blow blow) {
  SimOs& machine = *scene_.machine;
  const std::uint64_t change = scene_.chance.between(1, changesOfAStart);
  const std::uint64_t time = scene_.chance.spread(1, 70'000);
  switch (blow) {
    case Blow::killAtChange:
      return machine.killLauncherAtChangePoint(change);
    case Blow::killAtTime:
      return scene_.duringThisLaunch(time, [this] { scene_.machine->killLauncherNow(); });
    case Blow::powerCutAtChange:
      return atChange(change, [this] {
        scene_.mark("power cut at a change");
        cutPower();
      });
    case Blow::powerCutAtTime:
      return scene_.duringThisLaunch(time, [this] {
        scene_.mark("power cut at a time");
        cutPower();
      });
    case Blow::powerCutBetween:
      scene_.mark("power cut between launches");
      cutPower();
    default:
      scene_.mark("machine restarted");
      scene_.tell("the machine is started anew");
      machine.disk().settle();
      scene_.afterTheCut = World{machine.disk(), scene_.ledger->historyAt(machine.disk())};
      throw PowerGone{};
  }
}

// --- Failures, and second launchers ---

void Blows::failOneCall(std::uint64_t number) {
  scene_.ledger->whenCalled([this, left = number](Call call, std::wstring_view) mutable {
    if (left == 0 || sim::errorsOf(call).empty() || --left > 0) return;
    scene_.mark("single failing call");
    scene_.machine->failCallNumber(0, scene_.chance.pick(sim::errorsOf(call)));
  });
}

void Blows::failTheStart() {
  const std::uint64_t ms = scene_.chance.between(20'000, 60'000);
  scene_.ledger->whenCalled([this, ms, done = false](Call call, std::wstring_view) mutable {
    if (call != Call::createProcess || done) return;
    done = true;
    scene_.machine->failCallNumber(0, sim::errorsOf(call).front());
    scene_.machine->failAllFromCall(1, ms, sim::Outage::files);
  });
}

void Blows::runSecond() {
  scene_.tell("a second launcher is started");
  const std::size_t startsBefore = scene_.machine->starts().size();
  const sim::RunOutcome outcome = scene_.machine->runSecondLauncher();
  const bool started = scene_.machine->starts().size() > startsBefore;
  if (outcome.killed) return;
  scene_.mark(started ? "second launcher lived a whole life" : "second launcher turned away");
}

void Blows::prepareFailure(Blow blow) {
  SimOs& machine = *scene_.machine;
  Chance& chance = scene_.chance;
  const sim::Outage outage = chance.oneIn(3) ? sim::Outage::everything : sim::Outage::files;
  const std::uint64_t ms = chance.oneIn(2) ? chance.spread(1, 5'000) : chance.between(5'000, 80'000);
  switch (blow) {
    case Blow::callFails:
      return failOneCall(someCall());
    case Blow::outageAtCall:
      return machine.failAllFromCall(someCall(), ms, outage);
    case Blow::outageAtTime:
      return scene_.duringThisLaunch(chance.spread(1, 70'000), [this, ms, outage] {
        scene_.tell("an outage begins");
        scene_.machine->failAllFromCall(1, ms, outage);
      });
    case Blow::startFailsInOutage:
      return failTheStart();
    case Blow::secondAtCall:
      return scene_.ledger->whenCalled([this, left = someCall()](Call, std::wstring_view) mutable {
        if (left > 0 && --left == 0 && scene_.machine->launcherRuns()) runSecond();
      });
    default:
      return scene_.duringThisLaunch(chance.spread(1, 70'000), [this] { runSecond(); });
  }
}

// --- Scanners ---

void Blows::prepareHold(Blow blow) {
  SimOs& machine = *scene_.machine;
  Chance& chance = scene_.chance;
  static const std::vector<std::wstring_view> stateFiles = {files::bootState, files::bootState,
                                                            files::previousBootState, files::pendingRequest};
  static const std::vector<std::wstring_view> locks = {files::stateLock, files::stateLock, files::launchLock};
  std::wstring path;
  if (blow == Blow::stateHeld) path = machine.statePath(chance.pick(stateFiles));
  if (blow == Blow::lockHeld) path = machine.statePath(chance.pick(locks));
  if (blow == Blow::executableHeld) path = machine.slotPath(installation_.anySlot(), files::entry);
  if (blow == Blow::directoryHeld) {
    const std::vector<std::wstring> attempts = machine.names(machine.statePath(files::attempts));
    if (!attempts.empty()) path = machine.statePath(files::attempts) + L"\\" + chance.pick(attempts);
  }
  if (path.empty()) return;
  const sim::Access share = chance.oneIn(2) ? sim::accessRead : sim::accessNone;
  const std::uint64_t ms = chance.oneIn(2) ? chance.spread(1, 5'000) : chance.between(5'000, 40'000);
  if (chance.oneIn(3)) {
    scene_.duringThisLaunch(chance.spread(1, 70'000), [this, path, share, ms] { hold(scene_, path, share, ms); });
  } else {
    hold(scene_, path, share, ms);
  }
}

// --- People and installers ---

void Blows::disturbFiles(Blow blow) {
  switch (blow) {
    case Blow::stateDamaged:
      scene_.mark("state damaged");
      return installation_.damageState(true, false);
    case Blow::previousDamaged:
      return installation_.damageState(false, true);
    case Blow::bothDamaged:
      scene_.mark("both state files damaged");
      return installation_.damageState(true, true);
    case Blow::slotDeleted:
      return installation_.deleteSlot();
    case Blow::executableSpoiled:
      return installation_.spoilExecutable();
    case Blow::seedGone:
      return installation_.removeSeed();
    case Blow::seedReplaced:
      scene_.mark("seed replaced by a newer installer");
      return installation_.replaceSeed();
    default:
      return installation_.leaveAnyRequest();
  }
}

void Blows::disturbSurroundings(Blow blow) {
  SimOs& machine = *scene_.machine;
  Chance& chance = scene_.chance;
  const bool rootExists = machine.exists(machine.stateRoot());
  switch (blow) {
    case Blow::bootstrapNewer:
      newerBootstrapFor_ = static_cast<int>(chance.between(1, 12));
      scene_.mark("bootstrap of a newer major");
      return machine.writeBootstrap(sim::bootstrapDocument(std::nullopt, 2));
    case Blow::bootstrapBad:
      machine.writeBootstrap("{\"schemaVersion\":1}");
      if (chance.oneIn(2)) machine.remove(machine.installPath(files::bootstrap));
      return;
    case Blow::ownerChanged:
      if (rootExists) {
        machine.setOwner(machine.stateRoot(), chance.oneIn(3) ? sim::Owner::otherAccount : sim::Owner::administrators);
      }
      return;
    case Blow::listDrifted:
      if (rootExists) machine.setListDrifted(machine.stateRoot());
      return;
    default:
      return scene_.duringThisLaunch(chance.spread(1, 70'000), [this] {
        scene_.mark("machine slept in a launch");
        scene_.machine->advance(scene_.chance.between(1, 20 * hour));
      });
  }
}

}  // namespace launcher_stub::sweeps
