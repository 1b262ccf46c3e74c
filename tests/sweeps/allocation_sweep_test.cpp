// Every allocation that fails.
//
// Memory may run out at any allocation of the code under test. Reading, deciding and writing then throw and leak
// nothing. A launch ends with code 3 and without a text; afterwards nothing is left open, no runtime lives, the disk
// holds whole documents, and the next launch works.
//
// Idle ticks make the same allocations hundreds of times. Of allocations at the same place after the same call of the
// platform, between the same two changes, only the first two and the last one are made to fail.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <new>
#include <set>
#include <string>
#include <tuple>
#include <unordered_set>
#include <utility>

#include "json/parser.h"
#include "json/writer.h"
#include "state/attempt_record.h"
#include "state/bootstrap_record.h"
#include "state/decision.h"
#include "state/delivery_record.h"
#include "tests/sweeps/failing_memory.h"
#include "tests/sweeps/world.h"

namespace launcher_stub::sweeps {
namespace {

using sim::Call;

// Each scenario takes tens of seconds under AddressSanitizer if all of them are tried.
#if defined(__SANITIZE_ADDRESS__)
constexpr std::size_t scenarioStep = 6;
#else
constexpr std::size_t scenarioStep = 1;
#endif

struct Counts {
  std::uint64_t failed = 0;   // allocations that were made to fail
  std::uint64_t skipped = 0;  // as repetitions
  std::uint64_t launches = 0;
  std::uint64_t worlds = 0;
};

// --- Reading, deciding, writing ---

BootState fullState() {
  BootState state;
  state.generation = 41;
  state.active = "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa";
  state.previous = "cccccccccccccccccccccccccccccccc";
  state.candidate = "bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb";
  state.lastRequestId = "request-that-is-long-enough-not-to-be-stored-in-place";
  state.attemptCount = 2;
  for (int i = 0; i < 64; ++i) state.rejected.push_back("dddddddddddddddddddddddddddddd" + std::to_string(10 + i));
  state.recovered = true;
  return state;
}

const std::string longNonce = "0123456789abcdef0123456789abcdef";

// Lets each allocation of `action` fail in turn. `result` takes part in it and must come out the same in the end.
void failEachAllocation(const char* what, const std::function<std::string()>& action) {
  SCOPED_TRACE(what);
  const std::string expected = action();
  const std::int64_t before = livingBlocks();
  std::uint64_t failing = 1;
  for (;; ++failing) {
    bool threw = false;
    try {
      const AllocationCount count(failing);
      (void)action();  // only what it throws is of interest
    } catch (const std::bad_alloc&) {
      threw = true;
    }
    EXPECT_EQ(livingBlocks(), before) << "allocation " << failing;
    if (!threw) break;
  }
  EXPECT_GT(failing, 1u) << "nothing was allocated";
  EXPECT_EQ(action(), expected);
}

TEST(allocationSweep, readersThrowAndLeakNothing) {
  const std::string state = writeBootState(fullState());
  const std::string request = sim::pendingDocument("request-that-is-long-enough-not-to-be-stored-in-place", 7,
                                                   "bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb");
  const std::string restart = sim::slotReference(sim::Form::right, "bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb", longNonce,
                                                 "request-that-is-long-enough-not-to-be-stored-in-place");
  const std::string nested = R"({"one":[1,2,[3,{"a long key that is not stored in place":[null,true,"text \u00e9"]}]],)"
                             R"("a second long key that is not stored in place":{"deep":{"deeper":[[]]}}})";

  failEachAllocation("document", [&] {
    JsonValue value;
    std::string error;
    return parseJsonDocument(nested.data(), nested.size(), value, error) ? toJsonText(value) : error;
  });
  failEachAllocation("malformed document", [&] {
    JsonValue value;
    std::string error;
    return parseJsonDocument(nested.data(), nested.size() - 1, value, error) ? toJsonText(value) : error;
  });
  failEachAllocation("boot state", [&] {
    BootState record;
    std::string error;
    return readBootState(state, record, error) ? writeBootState(record) : error;
  });
  failEachAllocation("pending request", [&] {
    PendingRequest record;
    std::string error;
    return readPendingRequest(request, record, error) ? record.requestId : error;
  });
  failEachAllocation("restart request", [&] {
    RestartRequest record;
    std::string error;
    return readRestartRequest(restart, record, error) ? record.nonce : error;
  });
  failEachAllocation("attempt record", [&] {
    AttemptRecord record;
    std::string error;
    return readAttemptRecord(restart, record, error) ? record.nonce : error;
  });
  failEachAllocation("delivery", [&] {
    DeliveryRecord record;
    std::string error;
    return readDelivery(sim::deliveryDocument('a'), record, error) ? record.deliveryId : error;
  });
  failEachAllocation("bootstrap", [&] {
    BootstrapRecord record;
    std::string error;
    const std::string document = sim::bootstrapDocument("C:\\a state root that is not stored in place");
    return readBootstrap(document, record, error) ? *record.stateRoot : error;
  });
}

TEST(allocationSweep, writersThrowAndLeakNothing) {
  const BootState state = fullState();
  const AttemptRecord record{"bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb", longNonce, 300'000};

  failEachAllocation("boot state", [&] { return writeBootState(state); });
  failEachAllocation("attempt record", [&] { return writeAttemptRecord(record); });
}

// The state in a model and the kinds of its effects, as text.
std::string summaryOf(const LauncherModel& model) {
  std::string text = writeBootState(model.state);
  for (const TransitionEffect& effect : model.effects) text += " " + std::to_string(static_cast<int>(effect.kind));
  return text;
}

// A start in which a request takes the place of a used-up candidate.
StartInput busyStart() {
  StartInput input;
  input.primary = fullState();
  input.primary->attemptCount = 3;
  input.pending = PendingRequest{"another-request-that-is-not-stored-in-place", 42, "eeeeeeeeeeeeeeeeeeeeeeeeeeeeeeee"};
  input.runnableSlots = {*input.primary->active, *input.primary->previous, input.pending->candidate};
  input.seedRunnable = true;
  input.candidateTrialAllowed = true;
  input.nextNonce = longNonce;
  input.now = 400'000;
  return input;
}

TEST(allocationSweep, decisionsThrowAndLeakNothing) {
  const StartInput start = busyStart();
  StartInput recovery = busyStart();
  recovery.backup = recovery.primary;
  recovery.primary.reset();
  LauncherModel running = decideStart(start);
  running.startTime = 400'000;
  LauncherModel soaked = running;
  soaked.promotionMarkSeen = true;
  soaked.markTime = 410'000;
  LauncherModel thirdTry = running;
  thirdTry.state.attemptCount = 3;
  const std::string nextNonce = "fedcba9876543210fedcba9876543210";
  const RestartRequest restart{*running.selected, longNonce, running.state.lastRequestId};

  failEachAllocation("start", [&] { return summaryOf(decideStart(start)); });
  failEachAllocation("start by recovery", [&] { return summaryOf(decideStart(recovery)); });
  failEachAllocation("time-out", [&] { return summaryOf(decideTick(running, {.now = 600'000})); });
  failEachAllocation("promotion", [&] { return summaryOf(decideTick(soaked, {.now = 600'000})); });
  failEachAllocation("failed start", [&] { return summaryOf(decideSpawn(running, {.nextNonce = nextNonce})); });
  failEachAllocation("third failed start", [&] { return summaryOf(decideSpawn(thirdTry, {.nextNonce = nextNonce})); });
  failEachAllocation("failure",
                     [&] { return summaryOf(decideExit(thirdTry, {.exitCode = 7, .nextNonce = nextNonce})); });
  failEachAllocation("restart", [&] {
    return summaryOf(decideExit(running, {.restartPresent = true, .restart = restart, .nextNonce = nextNonce}));
  });
}

// --- Whole launches ---

// The allocations of an undisturbed launch that are worth a try.
class AllocationPlaces {
 public:
  explicit AllocationPlaces(const Scenario& scenario) {
    launch(scenario);  // what is allocated once per program is there after it
    launch(scenario);
    for (const auto& [signature, last] : last_) numbers_.insert(last.second);
  }
  const std::set<std::uint64_t>& numbers() const { return numbers_; }
  std::uint64_t skipped() const { return total_ - numbers_.size(); }

 private:
  static constexpr int mostRepetitions = 2;

  void launch(const Scenario& scenario) {
    last_.clear();
    numbers_.clear();
    Life life(scenario, Life::Disturbed::yes);
    life.ledger().whenCalled([this](Call call, std::wstring_view path) {
      call_ = call;
      path_ = path;
      sinceCall_ = 0;
    });
    const AllocationCount count(0, [&](std::uint64_t number) { note(number, life.machine().changePoints()); });
    life.machine().runLauncher();
    total_ = count.count();
  }

  void note(std::uint64_t number, std::uint64_t changePoints) {
    auto& [count, last] = last_[{call_, path_, ++sinceCall_, changePoints}];
    if (++count <= mostRepetitions) numbers_.insert(number);
    last = number;
  }

  Call call_{};
  std::wstring path_;
  int sinceCall_ = 0;
  std::map<std::tuple<Call, std::wstring, int, std::uint64_t>, std::pair<int, std::uint64_t>> last_;
  std::set<std::uint64_t> numbers_;
  std::uint64_t total_ = 0;
};

class AllocationSweep {
 public:
  explicit AllocationSweep(const Scenario& scenario) : scenario_(scenario) {}

  // The findings; empty is what it should be.
  std::string run() {
    const AllocationPlaces places(scenario_);
    counts_.skipped = places.skipped();
    for (const std::uint64_t number : places.numbers()) {
      ++counts_.failed;
      const std::string wrong = failAt(number);
      if (wrong.empty()) continue;
      World left;
      return wrong + "it began with allocation " + std::to_string(number) + "\n" + launch(number, true, left);
    }
    return {};
  }
  const Counts& counts() const { return counts_; }

 private:
  // What is wrong after a launch in which this allocation fails, and in the next ones.
  std::string failAt(std::uint64_t number) {
    World left;
    const std::string wrong = launch(number, false, left);
    if (!wrong.empty() || !seen_.insert(digestOf(left)).second) return wrong;
    ++counts_.worlds;
    counts_.launches += 2;
    return runUndisturbed(scenario_, left);
  }

  std::string launch(std::uint64_t number, bool traced, World& left) {
    Life life(scenario_, Life::Disturbed::yes);
    sim::SimOs& machine = life.machine();
    machine.setTracing(traced);
    life.ledger().allow({.exceptions = true});
    {
      const AllocationCount count(number);
      machine.runLauncher();
    }
    ++counts_.launches;
    std::string wrong = life.findings();
    if (machine.lastRun().uncaught != std::bad_alloc().what()) wrong += "the launch did not end by its exception\n";
    if (!life.ledger().isOldOrNew(machine.disk())) wrong += "the disk holds neither the old document nor the new\n";
    if (traced) wrong += machine.trace();
    left = life.worldWith(std::move(machine.disk()));
    return wrong;
  }

  const Scenario& scenario_;
  std::unordered_set<std::uint64_t> seen_;
  Counts counts_;
};

TEST(allocationSweep, launchesEndWithoutHarmWhereverAnAllocationFails) {
  const auto begun = std::chrono::steady_clock::now();
  Counts all;
  std::size_t tried = 0;
  for (std::size_t i = 0; i < scenarios().size(); i += scenarioStep, ++tried) {
    AllocationSweep sweep(scenarios()[i]);
    EXPECT_EQ(sweep.run(), "") << "scenario: " << scenarios()[i].name;
    EXPECT_GT(sweep.counts().failed, 0u) << scenarios()[i].name;
    all.failed += sweep.counts().failed;
    all.skipped += sweep.counts().skipped;
    all.launches += sweep.counts().launches;
    all.worlds += sweep.counts().worlds;
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begun;
  std::printf(
      "figures: allocation sweep: %zu of %zu scenarios, %llu allocations failed, %llu skipped as repetitions, "
      "%llu launches, %llu different worlds, %.1f s\n",
      tried, scenarios().size(), static_cast<unsigned long long>(all.failed),
      static_cast<unsigned long long>(all.skipped), static_cast<unsigned long long>(all.launches),
      static_cast<unsigned long long>(all.worlds), seconds.count());
}

}  // namespace
}  // namespace launcher_stub::sweeps
