// Every call that the launcher makes of Windows fails, in whole launches with real files and real processes.
//
// In each kind of launch each call fails once with each error that the system has for it, and from each call on all
// calls of that function fail. What the launch then says, ends with, leaves on the disk and leaves over is judged, and
// another launch, which nothing disturbs, has to start something. The launch's clock is ours: it moves when the
// launcher sleeps.
//
// Without --all a share of it: see isInShare.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/call_faults/launch.h"
#include "tests/call_faults/product_imports.h"
#include "tests/call_faults/replacement.h"
#include "tests/call_faults/sweep_options.h"
#include "tests/call_faults/text.h"

namespace call_faults {
namespace {

struct Figures {
  std::set<std::string_view> functions;
  std::set<std::pair<std::string_view, DWORD>> codes;
  std::uint64_t places = 0;
  std::uint64_t skipped = 0;  // as repetitions of idle ticks
  std::uint64_t faults = 0;
  std::uint64_t launches = 0;
  std::uint64_t nextLaunches = 0;
};

Figures& figures() {
  static Figures all;
  return all;
}

// What the launcher asks once in the life of its process: only the first launch of this one can meet a refusal.
constexpr std::array<std::string_view, 2> lookedUpOnce = {"GetModuleHandleW", "GetProcAddress"};

bool isLookedUpOnce(std::string_view function) {
  return std::find(lookedUpOnce.begin(), lookedUpOnce.end(), function) != lookedUpOnce.end();
}

const std::vector<Refusal>& refusalsOf(std::string_view function) {
  static const std::vector<Refusal> none;
  for (const ReplacedCall& call : replacedCalls()) {
    if (call.name == function) return call.refusals;
  }
  return none;
}

// The calls of an undisturbed launch that are worth a try: all, save those that idle ticks and retries repeat. Of the
// calls of one function, about one thing, between the same two changes of the world, the first two and the last are
// enough once a runtime has been started; before that the first twelve.
std::vector<Place> placesOf(const std::vector<Place>& all) {
  using Signature = std::tuple<std::string_view, std::wstring, std::uint64_t>;
  std::map<Signature, std::pair<int, std::size_t>> seen;  // how often, and where last
  std::set<std::size_t> chosen;
  for (std::size_t index = 0; index < all.size(); ++index) {
    if (refusalsOf(all[index].function).empty() || isLookedUpOnce(all[index].function)) continue;
    auto& [count, last] = seen[{all[index].function, all[index].subject, all[index].epoch}];
    last = index;
    if (++count <= (all[index].supervising ? 2 : 12)) chosen.insert(index);
  }
  for (const auto& [signature, repeated] : seen) chosen.insert(repeated.second);
  std::vector<Place> places;
  for (const std::size_t index : chosen) places.push_back(all[index]);
  return places;
}

class FaultSweep {
 public:
  explicit FaultSweep(const LaunchKind& kind) : kind_(kind), world_(kind) {}

  void run() {
    world_.reset();
    const Outcome undisturbed = launchOnce(kind_.circumstances, std::nullopt, 1);
    expectAsTold(undisturbed);
    if (testing::Test::HasFailure()) return;
    const std::vector<Place> places = placesOf(undisturbed.places);
    figures().skipped += undisturbed.places.size() - places.size();
    for (const Place& place : places) {
      figures().functions.insert(place.function);
      ++figures().places;
      tryPlace(place);
      if (testing::Test::HasFailure()) return;  // one is enough to look into
    }
  }

  // While no launch of this process has got through to the random source.
  void tryLookups() {
    for (const std::string_view function : lookedUpOnce) {
      figures().functions.insert(function);
      ++figures().places;
      const Fault fault{function, 1, refusalsOf(function).at(0), false};
      SCOPED_TRACE(kind_.name + ": " + describe(fault));
      const Outcome outcome = meet(fault);
      EXPECT_FALSE(outcome.exitCode) << "nothing random, and no exception: " << told(outcome);
      EXPECT_TRUE(outcome.started.empty()) << told(outcome);
    }
  }

 private:
  void tryPlace(const Place& place) {
    const std::vector<Refusal>& refusals = refusalsOf(place.function);
    for (std::size_t index = 0; index < refusals.size(); ++index) {
      const Fault fault{place.function, place.index, refusals[index], false};
      if (isChosen(kind_.name, fault, index == 0)) live(fault);
    }
    for (std::size_t index = 0; index < refusals.size(); ++index) {
      // Of the plain errors one is enough here: what differs is what a launch does that never gets through.
      if (index > 0 && refusals[index].way == Way::refused) continue;
      const Fault lasting{place.function, place.index, refusals[index], true};
      if (isChosen(kind_.name, lasting, index == 0)) live(lasting);
    }
  }

  void live(const Fault& fault) {
    SCOPED_TRACE(kind_.name + ": " + describe(fault));
    const Outcome outcome = meet(fault);
    if (fault.refusal.way == Way::partly) expectAsTold(outcome);  // the rest is to be asked for
    if (testing::Test::HasFailure() || !seen_.insert(leftOver()).second) return;
    ++figures().nextLaunches;
    const Outcome next = launchOnce({}, std::nullopt, 2);
    EXPECT_EQ(join(judgeNext(kind_, next), "\n"), "") << told(next) << "\nbefore it: " << told(outcome);
  }

  Outcome meet(const Fault& fault) {
    figures().codes.insert({fault.function, fault.refusal.code});
    ++figures().faults;
    nowTrying(kind_.name, fault);
    world_.reset();
    Outcome outcome = launchOnce(kind_.circumstances, fault, 1);
    EXPECT_FALSE(outcome.refused.empty()) << "the fault was never met: " << told(outcome);
    EXPECT_EQ(join(judge(world_, kind_, fault, outcome), "\n"), "") << told(outcome);
    return outcome;
  }

  Outcome launchOnce(const Circumstances& circumstances, const std::optional<Fault>& fault, std::uint32_t number) {
    ++figures().launches;
    return launch(world_, circumstances, fault, number);
  }

  void expectAsTold(const Outcome& outcome) {
    SCOPED_TRACE(kind_.name + ": " + kind_.why);
    EXPECT_EQ(join(judge(world_, kind_, std::nullopt, outcome), "\n"), "") << told(outcome);
    EXPECT_EQ(outcome.exitCode, static_cast<int>(kind_.exitCode));
    EXPECT_EQ(outcome.started, kind_.started);
    ASSERT_EQ(outcome.lines.size(), kind_.lines.size()) << told(outcome);
    for (std::size_t index = 0; index < kind_.lines.size(); ++index) {
      EXPECT_TRUE(outcome.lines[index].starts_with(kind_.lines[index])) << outcome.lines[index];
    }
  }

  // What the next launch finds, in a form in which equal worlds are equal.
  std::string leftOver() const {
    const Documents documents = world_.documents();
    std::string text = documents.state.value_or("(none)") + "|" + documents.previous.value_or("(none)") + "|" +
                       documents.pending.value_or("(none)") + "|" + std::to_string(documents.temporaries.size());
    for (const std::wstring& attempt : documents.attempts) text += "|" + toUtf8(attempt);
    return text;
  }

  static std::string told(const Outcome& outcome) {
    return "exit code " + (outcome.exitCode ? std::to_string(*outcome.exitCode) : std::string("none")) + ", started " +
           join(outcome.started, ",") + ", lines: " + join(outcome.lines) + ", boxes: " + join(outcome.boxes) +
           ", after " + std::to_string(outcome.lastedMs) + " ms";
  }

  const LaunchKind& kind_;
  World world_;
  std::set<std::string> seen_;
};

class CallFaults : public testing::TestWithParam<LaunchKind> {};

TEST_P(CallFaults, leaveEveryLaunchWithADefinedEndAndTheNextOneWhole) {
  replacedCalls();
  const DWORD begun = GetTickCount();
  const Figures before = figures();
  FaultSweep(GetParam()).run();
  std::printf("%s: %llu places, %llu faults, %llu launches, %lu ms\n", GetParam().name.c_str(),
              figures().places - before.places, figures().faults - before.faults, figures().launches - before.launches,
              GetTickCount() - begun);
  std::fflush(stdout);
}

INSTANTIATE_TEST_SUITE_P(InALaunch, CallFaults, testing::ValuesIn(launchKinds()),
                         [](const auto& kind) { return kind.param.name; });

TEST(callFaultTable, knowsEveryImportOfTheLauncher) {
  std::set<std::string_view> known;
  for (const ReplacedCall& call : replacedCalls()) known.insert(call.name);
  for (const LeftAlone& call : callsLeftAlone()) known.insert(call.name);
  EXPECT_GT(std::size(launcherImports), 60u);
  for (const std::string_view import : launcherImports) EXPECT_TRUE(known.contains(import)) << import;
}

// Also shows that the launcher's own calls are told apart from those of the run-time library.
TEST(callFaultTable, isReachedAsAWholeByTheKindsOfLaunches) {
  std::set<std::string_view> reached;
  replacedCalls();
  for (const LaunchKind& kind : launchKinds()) {
    World world(kind);
    world.reset();
    for (const Place& place : launch(world, kind.circumstances, std::nullopt, 1).places) reached.insert(place.function);
  }
  for (const std::string_view function : lookedUpOnce) {
    if (figures().functions.contains(function)) reached.insert(function);
  }
  for (const ReplacedCall& call : replacedCalls()) EXPECT_TRUE(reached.contains(call.name)) << call.name;
}

class BeforeAllLaunches : public testing::Environment {
 public:
  void SetUp() override {
    replacedCalls();
    FaultSweep(launchKinds().front()).tryLookups();
  }
};

}  // namespace

void addWhatComesBeforeAllLaunches() { testing::AddGlobalTestEnvironment(new BeforeAllLaunches); }

void printFigures() {
  const Figures& all = figures();
  std::printf(
      "figures: call faults: %zu functions, %llu calls, %llu skipped as repetitions, %zu error codes, %llu faults, "
      "%llu launches, %llu of them next ones\n",
      all.functions.size(), all.places, all.skipped, all.codes.size(), all.faults, all.launches, all.nextLaunches);
}

}  // namespace call_faults
