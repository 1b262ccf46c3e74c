#include "tests/sweeps/life_runtimes.h"

#include <algorithm>

#include "slots/file_names.h"

namespace launcher_stub::sweeps {
namespace {

using sim::Form;
using sim::RunningRuntime;
using sim::Runtime;

constexpr std::uint64_t soak = 60'000;
constexpr std::uint64_t silentUntil = 200'000;  // later than a candidate may be silent
constexpr std::uint64_t hour = 3'600'000;

constexpr Form forms[] = {Form::right,           Form::otherNonce, Form::otherSlot, Form::half,
                          Form::noSchemaVersion, Form::newerMajor, Form::empty};

}  // namespace

std::uint32_t LifeRuntimes::drawCode() {
  static const std::vector<std::uint32_t> codes = {0, 1, 7, 259, 0xC0000005, 0xFFFFFFFF};
  return scene_.chance.pick(codes);
}

// Around the end of the soak every millisecond may matter; a candidate that is closed early never gets there.
LifeRuntimes::Work LifeRuntimes::drawGoodTrial(Work work) {
  Chance& chance = scene_.chance;
  switch (chance.below(4)) {
    case 0:
      work.end = work.ready + chance.below(3'000);
      break;
    case 1:
      work.end = work.healthy + soak - 500 + chance.below(1'500);
      work.code = chance.oneIn(2) ? drawCode() : 0;
      break;
    default:
      work.end = work.healthy + soak + 1'000 + chance.below(5'000);
  }
  return work;
}

LifeRuntimes::Work LifeRuntimes::drawWork(Build build, bool onTrial) {
  Chance& chance = scene_.chance;
  Work work;
  work.ready = chance.between(20, 900);
  work.healthy = work.ready + chance.below(2'000);
  work.end = work.ready + chance.spread(50, 70'000);
  if (chance.oneIn(10)) work.code = drawCode();
  switch (build) {
    case Build::crashing:
      work.end = chance.oneIn(3) ? work.ready + 10 : chance.below(work.ready);
      work.code = drawCode();
      return work;
    case Build::crashingLater:
      work.end = work.healthy + chance.spread(10, soak);
      work.code = drawCode();
      return work;
    case Build::silent:
      work.saysReady = chance.oneIn(2);
      work.saysHealthy = false;
      work.end = onTrial ? silentUntil : work.end;
      return work;
    case Build::late:
      work.healthy = 119'000 + chance.below(2'000);
      work.end = onTrial ? work.healthy + chance.below(soak + 2'000) : work.end;
      return work;
    case Build::good:
    case Build::count_:
      break;
  }
  work.saysReady = !chance.oneIn(20);
  return onTrial ? drawGoodTrial(work) : work;
}

Runtime LifeRuntimes::draw(const std::string& slot) {
  const std::optional<BootState> state = scene_.machine->bootState();
  const bool onTrial = state && state->candidate == slot;
  const Build build = installation_.buildOf(slot);
  Work work = drawWork(build, onTrial);
  Runtime runtime;
  if (!onTrial && !scene_.quiet && scene_.chance.oneIn(scene_.plan.longOneIn)) {
    work.end = scene_.chance.between(hour, 3 * hour);
    scene_.mark("session of hours");
  }
  const bool soaks = onTrial && work.saysHealthy && work.end > work.healthy + soak;
  if (soaks && !scene_.quiet && scene_.chance.oneIn(8)) holdAtThePromotion(runtime, work);
  if (work.saysReady) runtime.readyAt(work.ready);
  if (work.saysHealthy && (onTrial || scene_.chance.oneIn(4))) runtime.healthyAt(work.healthy);
  if (!scene_.quiet) {
    for (std::uint64_t left = scene_.chance.below(scene_.plan.mostActs + 1); left > 0; --left) {
      const int act = scene_.chance.weighted(scene_.plan.acts);
      if (act >= 0) add(static_cast<Act>(act), runtime, work);
    }
  }
  runtime.exitsAt(work.end, work.code);
  return runtime;
}

// A file that the promotion needs is held when it is due: it waits, is dropped, or finds the runtime dead.
void LifeRuntimes::holdAtThePromotion(Runtime& runtime, Work& work) {
  Chance& chance = scene_.chance;
  const std::uint64_t from = work.healthy + soak - chance.below(1'000);
  const std::wstring path = scene_.machine->statePath(chance.oneIn(2) ? files::stateLock : files::bootState);
  const std::uint64_t ms = chance.oneIn(2) ? chance.below(5'000) : chance.below(70'000);
  runtime.doesAt(from, [this, path, ms](RunningRuntime&) { hold(scene_, path, sim::accessRead, ms); });
  work.end = chance.oneIn(2) ? from + 1'000 + chance.below(ms + 1) : from + ms + 2'000;
}

void LifeRuntimes::add(Act act, Runtime& runtime, const Work& work) {
  Chance& chance = scene_.chance;
  switch (act) {
    case Act::update:
      return addUpdate(runtime, work, true);
    case Act::slotOnly:
      return addUpdate(runtime, work, false);
    case Act::request:
      runtime.doesAt(sometime(work), [this](RunningRuntime&) { installation_.leaveAnyRequest(); });
      return;
    case Act::restart:
      return addRestart(runtime, work);
    case Act::strangeMarkers:
      runtime.readyAt(sometime(work), forms[chance.below(std::size(forms))]);
      runtime.healthyAt(sometime(work), forms[chance.below(std::size(forms))]);
      return;
    case Act::grandchild:
      runtime.startsGrandchildAt(sometime(work), chance.oneIn(2) ? sim::forever : chance.spread(100, 60'000));
      return;
    case Act::lingers:
      runtime.survivesTermination(chance.spread(10, 45'000));
      return;
    case Act::holds:
      return addHold(runtime, work);
    case Act::rubbish:
      runtime.writesAttemptFileAt(sometime(work), L"rubbish-" + std::to_wstring(chance.below(5)), "rubbish");
      return;
    case Act::count_:
      return;
  }
}

// As a runtime updates itself: the slot's files, its last one, the request, perhaps the wish to be started anew.
void LifeRuntimes::addUpdate(Runtime& runtime, const Work& work, bool withRequest) {
  Chance& chance = scene_.chance;
  const std::string slot = chance.oneIn(4) ? installation_.anySlot() : installation_.newSlotName();
  const std::uint64_t begin = sometime(work);
  const std::uint64_t step = chance.spread(1, 2'000);
  runtime.doesAt(begin, [this, slot](RunningRuntime&) { installation_.writeSlotFiles(slot); });
  runtime.doesAt(begin + step, [this, slot](RunningRuntime&) { installation_.completeSlot(slot); });
  if (!withRequest) return;
  runtime.doesAt(begin + 2 * step, [this, slot](RunningRuntime&) { installation_.leaveRequest(slot); });
  if (!chance.oneIn(3)) return;
  runtime.requestsRestartAt(begin + 3 * step);
  runtime.exitsAt(begin + 3 * step + 50, 0);
}

void LifeRuntimes::addRestart(Runtime& runtime, const Work& work) {
  Chance& chance = scene_.chance;
  const std::optional<BootState> state = scene_.machine->bootState();
  std::optional<std::string> id;
  if (chance.oneIn(4)) id = "request-0";  // nobody's
  if (chance.oneIn(4) && state) id = state->lastRequestId;
  const Form form = chance.oneIn(2) ? Form::right : forms[chance.below(std::size(forms))];
  const std::uint64_t at = sometime(work);
  runtime.requestsRestartAt(at, form, id);
  if (chance.oneIn(2)) runtime.exitsAt(at + 20, drawCode());
}

void LifeRuntimes::addHold(Runtime& runtime, const Work& work) {
  Chance& chance = scene_.chance;
  static const std::vector<std::wstring_view> names = {files::bootState, files::previousBootState,
                                                       files::pendingRequest, files::stateLock};
  const std::uint64_t from = sometime(work);
  const std::uint64_t ms = chance.spread(5, 40'000);
  if (chance.oneIn(3)) {
    runtime.holdsAttemptDirectoryAt(from);
  } else {
    runtime.holdsAt(from, scene_.machine->statePath(chance.pick(names)),
                    chance.oneIn(2) ? sim::accessRead : sim::accessNone, ms);
  }
}

}  // namespace launcher_stub::sweeps
