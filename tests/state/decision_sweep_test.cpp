// Every combination of a small domain goes through every step, and what must hold after any step is checked.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "decision_support.h"
#include "state/decision.h"

namespace launcher_stub {
namespace {

using namespace decision_support;

using OptionalSlot = std::optional<std::string>;

// A step as seen from outside: what was in force before it and what came out.
struct Step {
  BootState before;
  SlotNames failedBefore;
  LauncherModel after;
};

std::ptrdiff_t countOf(const Effects& effects, EffectKind kind) {
  return std::count_if(effects.begin(), effects.end(), [kind](const auto& effect) { return effect.kind == kind; });
}

bool isRejected(const BootState& state, const std::string& slot) {
  return std::count(state.rejected.begin(), state.rejected.end(), slot) != 0;
}

const Effects noRuntimeEnd = noRunnableRuntime();
const Effects overflowEnd = generationOverflow();

bool endsWithMessage(const Effects& effects) {
  if (effects.size() < 2) return false;
  const auto lastTwo = effects.end() - 2;
  return std::equal(lastTwo, effects.end(), noRuntimeEnd.begin()) ||
         std::equal(lastTwo, effects.end(), overflowEnd.begin());
}

const char* brokenRuleOfEnding(const Step& step) {
  const Effects& effects = step.after.effects;
  const std::ptrdiff_t reports = countOf(effects, EffectKind::ReportError);
  const std::ptrdiff_t exits = countOf(effects, EffectKind::Exit);
  if (exits > 1) return "at most one Exit";
  if (exits == 1 && effects.back().kind != EffectKind::Exit) return "Exit is last";
  if (reports != (endsWithMessage(effects) ? 1 : 0)) return "a message is one of the two, right before Exit 1";
  if (countOf(effects, EffectKind::RequestRelaunch) + countOf(effects, EffectKind::BeginAttempt) + exits > 1) {
    return "start, relaunch and exit exclude each other";
  }
  if (effects.size() >= 2 && effects[effects.size() - 2] == overflowEnd.front() && effects.size() != 2) {
    return "an overflow discards the rest";
  }
  return nullptr;
}

const char* brokenRuleOfAttempt(const LauncherModel& model, std::size_t at) {
  const Effects& effects = model.effects;
  const bool started = effects[at].kind == EffectKind::StartRuntime;
  if (started && (at == 0 || effects[at - 1].kind != EffectKind::BeginAttempt)) return "no start without an attempt";
  if (effects[at].kind != EffectKind::BeginAttempt) return nullptr;
  const std::uint64_t startedAt = std::get<AttemptRecord>(effects[at].record).startedAt;
  const Effects expected = attemptOf(model.selectedKind, model.selected.value_or("?"), model.nextNonce, startedAt);
  if (Effects(effects.begin() + static_cast<std::ptrdiff_t>(at), effects.end()) != expected) {
    return "an attempt is followed by the start of the selected slot, and that is all";
  }
  return nullptr;
}

const char* brokenRuleOfChoice(const Step& step) {
  const LauncherModel& model = step.after;
  if (countOf(model.effects, EffectKind::StartRuntime) == 0) return nullptr;
  const std::string& slot = *model.selected;
  if (model.failedThisRun.contains(slot)) return "a slot that failed in this run is not started";
  if (slot == "seed" ? !model.seedRunnable : !model.runnableSlots.contains(slot)) return "only what can run is started";
  if (model.startTime != 0 || model.markTime != 0 || model.promotionMarkSeen || model.timeoutQueued) {
    return "a start clears the marks";
  }
  const OptionalSlot homes[] = {model.state.candidate, model.state.active, model.state.previous, "seed"};
  if (homes[model.selectedKind] != slot) return "the kind says where the slot's name stands";
  if (model.selectedKind != kindCandidate) return nullptr;
  if (!model.candidateTrialAllowed) return "no trial where none is allowed";
  if (isRejected(model.state, slot)) return "a rejected slot is no candidate";
  if (model.state.attemptCount < 1 || model.state.attemptCount > 3) return "a candidate has at most three starts";
  return nullptr;
}

const char* brokenRuleOfWrites(const Step& step) {
  const LauncherModel& model = step.after;
  std::uint64_t generation = step.before.generation;
  const BootState* last = nullptr;
  for (const TransitionEffect& effect : model.effects) {
    if (effect.kind != EffectKind::WriteBootState) continue;
    last = &std::get<BootState>(effect.record);
    if (effect.savePrevious ? last->generation <= generation : last->generation != generation) {
      return "a write that keeps the previous copy raises the generation, another does not";
    }
    generation = last->generation;
  }
  if (last != nullptr && *last != model.state) return "the last write holds the final state";
  const bool overflow = model.effects == overflowEnd;
  if (last == nullptr && !overflow && model.state != step.before) return "no change without a write";
  return nullptr;
}

const char* brokenRuleOfState(const Step& step) {
  const BootState& after = step.after.state;
  if (after.generation < step.before.generation) return "the generation never falls";
  if (step.before.attemptCount <= 3 && after.attemptCount > 3) return "no more than three starts are counted";
  if (after.rejected.size() > 64) return "at most 64 slots are rejected";
  if (std::set<std::string>(after.rejected.begin(), after.rejected.end()).size() != after.rejected.size()) {
    return "no slot is rejected twice";
  }
  const SlotNames& failed = step.after.failedThisRun;
  if (!std::includes(failed.begin(), failed.end(), step.failedBefore.begin(), step.failedBefore.end())) {
    return "what failed in this run stays failed";
  }
  return nullptr;
}

const char* brokenRule(const Step& step) {
  for (std::size_t at = 0; at < step.after.effects.size(); ++at) {
    if (const char* rule = brokenRuleOfAttempt(step.after, at)) return rule;
  }
  for (const auto& rules : {brokenRuleOfEnding, brokenRuleOfChoice, brokenRuleOfWrites, brokenRuleOfState}) {
    if (const char* rule = rules(step)) return rule;
  }
  return nullptr;
}

testing::AssertionResult holds(const Step& step) {
  const char* rule = brokenRule(step);
  if (rule == nullptr) return testing::AssertionSuccess();
  return testing::AssertionFailure() << rule << "\nstate before: " << text(step.before)
                                     << "\nafter:" << text(step.after);
}

const std::uint64_t generations[] = {0, 1, lastGeneration - 2, lastGeneration - 1, lastGeneration};

// Which slots stand where.
struct Places {
  OptionalSlot active;
  OptionalSlot previous;
  OptionalSlot candidate;
  std::vector<std::string> rejected;
};

const Places allPlaces[] = {
    {std::nullopt, std::nullopt, std::nullopt, {}},
    {std::nullopt, std::nullopt, "cccc", {}},
    {"aaaa", "bbbb", std::nullopt, {"cccc"}},
    {"aaaa", "bbbb", "cccc", {}},
    {"aaaa", "bbbb", "cccc", {"cccc"}},
    {"aaaa", "aaaa", "aaaa", {"bbbb"}},
};

// Calls `check` with every state of the domain, until one fails.
template <typename Check>
void forEachState(const Check& check) {
  for (const Places& places : allPlaces) {
    for (const std::uint64_t generation : generations) {
      for (std::uint32_t attemptCount = 0; attemptCount <= 4; ++attemptCount) {
        BootState state;
        state.generation = generation;
        state.active = places.active;
        state.previous = places.previous;
        state.candidate = places.candidate;
        state.rejected = places.rejected;
        state.attemptCount = attemptCount;
        check(state);
        if (testing::Test::HasFailure()) return;
      }
    }
  }
}

const SlotNames runnableSets[] = {{}, {"cccc"}, {"aaaa", "bbbb"}, {"aaaa", "bbbb", "cccc"}};

// The start inputs of one stored state: what can run, and one bit each for seed, trial, source and the rest.
std::vector<StartInput> startsFrom(const BootState& state) {
  std::vector<StartInput> inputs;
  for (unsigned bits = 0; bits < 128; ++bits) {
    const auto bit = [bits](unsigned at) { return (bits >> at & 1U) != 0; };
    StartInput input = startWithout();
    input.runnableSlots = runnableSets[bits & 3U];
    input.seedRunnable = bit(2);
    input.candidateTrialAllowed = bit(3);
    (bit(4) ? input.primary : input.backup) = state;
    if (bit(5)) input.pending = requestFor("cccc", bit(6) ? state.generation : state.generation + 1);
    if (!bit(5) && bit(6)) {
      input.exempt = {"cccc"};
      input.generationFloor = lastGeneration - 2;
    }
    inputs.push_back(input);
  }
  return inputs;
}

void checkStart(const BootState& before, const StartInput& input) {
  const LauncherModel after = decideStart(input);
  ASSERT_TRUE(holds({before, {}, after}));
  ASSERT_EQ(after.selected.has_value(), !endsWithMessage(after.effects)) << text(after);
  ASSERT_EQ(countOf(after.effects, EffectKind::BeginAttempt), after.selected ? 1 : 0) << text(after);
  ASSERT_EQ(countOf(after.effects, EffectKind::EndRuntimeTree), 0) << text(after);
  const bool overflow = after.effects == overflowEnd;
  const bool considered = input.pending && input.candidateTrialAllowed && !overflow;
  ASSERT_EQ(countOf(after.effects, EffectKind::ClearPending), considered ? 1 : 0) << text(after);
  ASSERT_EQ(after.state.recovered, input.backup.has_value()) << text(after);
}

TEST(decisionSweep, startsHoldTheRules) {
  std::size_t steps = 0;
  forEachState([&](const BootState& state) {
    for (const StartInput& input : startsFrom(state)) {
      ASSERT_NO_FATAL_FAILURE(checkStart(state, input));
      ++steps;
    }
  });

  EXPECT_EQ(steps, 6U * 5 * 5 * 128);
}

// Attempts of every kind, while all can still run, while only the candidate and the seed can, and near the end.
std::vector<LauncherModel> attemptsWith(const BootState& state) {
  std::vector<LauncherModel> models;
  for (std::uint32_t kind = 0; kind < 4; ++kind) {
    LauncherModel model = runningModel(kind);
    model.state = state;
    models.push_back(model);
    model.runnableSlots = {"cccc"};
    models.push_back(model);
    model.candidateTrialAllowed = kind == kindCandidate;
    model.seedRunnable = false;
    model.failedThisRun = {"aaaa", "seed"};
    models.push_back(model);
  }
  return models;
}

TEST(decisionSweep, failedStartsHoldTheRules) {
  SpawnInput input;
  input.nextNonce = "nonce-0002";
  forEachState([&](const BootState& state) {
    for (const LauncherModel& model : attemptsWith(state)) {
      const LauncherModel after = decideSpawn(model, input);

      ASSERT_TRUE(holds({state, model.failedThisRun, after}));
      ASSERT_EQ(countOf(after.effects, EffectKind::StartRuntime) + countOf(after.effects, EffectKind::Exit), 1);
      ASSERT_EQ(after.nextNonce, "nonce-0002");
    }
  });
}

void checkEnd(const LauncherModel& before, const ExitInput& input) {
  const LauncherModel after = decideExit(before, input);
  const std::ptrdiff_t relaunches = countOf(after.effects, EffectKind::RequestRelaunch);
  ASSERT_TRUE(holds({before.state, before.failedThisRun, after}));
  ASSERT_EQ(countOf(after.effects, EffectKind::StartRuntime) + countOf(after.effects, EffectKind::Exit) + relaunches, 1)
      << text(after);
  ASSERT_EQ(after.settledMarkSeen, before.settledMarkSeen) << text(after);
  ASSERT_TRUE(relaunches == 0 || (input.restartPresent && input.restart)) << text(after);
}

TEST(decisionSweep, endsHoldTheRules) {
  forEachState([&](const BootState& state) {
    for (LauncherModel& model : attemptsWith(state)) {
      for (unsigned bits = 0; bits < 16; ++bits) {
        model.settledMarkSeen = (bits & 1U) != 0;
        model.timeoutQueued = (bits & 2U) != 0;
        ExitInput input;
        input.exitCode = 5;
        input.nextNonce = "nonce-0002";
        input.restartPresent = (bits & 4U) != 0;
        if ((bits & 8U) != 0) input.restart = RestartRequest{*model.selected, model.nextNonce, std::nullopt};

        ASSERT_NO_FATAL_FAILURE(checkEnd(model, input));
      }
    }
  });
}

void checkTick(const LauncherModel& before, const TickInput& input) {
  const LauncherModel after = decideTick(before, input);
  ASSERT_TRUE(holds({before.state, before.failedThisRun, after}));
  ASSERT_EQ(after.selected, before.selected);
  ASSERT_EQ(countOf(after.effects, EffectKind::StartRuntime), 0);
  const bool candidate = before.selectedKind == kindCandidate;
  ASSERT_TRUE(candidate || after.effects.empty());
  const bool stopped = !after.effects.empty() && after.effects.front().kind == EffectKind::EndRuntimeTree;
  ASSERT_EQ(stopped, after.timeoutQueued && !before.timeoutQueued) << text(after);
  ASSERT_TRUE(!stopped || (after.effects.size() == 1 && !after.promotionMarkSeen)) << text(after);
  const bool wrote = countOf(after.effects, EffectKind::WriteBootState) != 0;
  ASSERT_EQ(wrote, candidate && after.selectedKind == kindActive) << text(after);
  ASSERT_TRUE(!wrote || (after.promotionMarkSeen && after.state.active == before.selected)) << text(after);
}

TEST(decisionSweep, ticksHoldTheRules) {
  const std::uint64_t times[] = {0, 999'999, 1'059'999, 1'060'000, 1'119'999, 1'120'000, lastGeneration};
  forEachState([&](const BootState& state) {
    for (const std::uint64_t now : times) {
      for (unsigned bits = 0; bits < 16; ++bits) {
        LauncherModel model = runningModel((bits & 1U) != 0 ? kindCandidate : kindActive);
        model.state = state;
        model.promotionMarkSeen = (bits & 2U) != 0;
        model.markTime = 1'000'000;
        model.timeoutQueued = (bits & 4U) != 0;
        TickInput input;
        input.now = now;
        input.settledSeen = (bits & 4U) == 0;
        input.promotionSeen = (bits & 8U) != 0;

        ASSERT_NO_FATAL_FAILURE(checkTick(model, input));
      }
    }
  });
}

// However a run begins, when every start fails it comes to its end after at most three starts of the candidate and
// one each of active, previous and seed.
TEST(decisionSweep, runsOfFailuresEnd) {
  SpawnInput failed;
  failed.nextNonce = "nonce-0002";
  forEachState([&](const BootState& state) {
    for (unsigned bits = 0; bits < 8; ++bits) {
      StartInput input = startFrom(state);
      input.runnableSlots = runnableSets[bits & 3U];
      input.seedRunnable = (bits & 2U) != 0;
      if ((bits & 4U) != 0) input.pending = requestFor("cccc", state.generation);
      LauncherModel model = decideStart(input);
      for (int starts = 0; model.selected && !endsWithMessage(model.effects); ++starts) {
        ASSERT_LT(starts, 6) << text(model);
        model = decideSpawn(model, failed);
      }

      ASSERT_TRUE(endsWithMessage(model.effects)) << text(model);
    }
  });
}

}  // namespace
}  // namespace launcher_stub
