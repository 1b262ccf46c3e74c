// The rejected list around its limit of 64 entries: every start input and every failure that can touch it, held against
// the second implementation and the rules. In the lists: none of the candidate, or the candidate as the oldest, a
// middle or the newest entry; names once each, or one of them twice, which a document may hold.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "domain.h"
#include "oracle.h"
#include "rules.h"
#include "tests/state/decision_support.h"

namespace launcher_stub::decision_space {
namespace {

using decision_support::text;

const std::string candidate = "cccc";

std::string entry(std::size_t number) {
  const std::string digits = std::to_string(number);
  return "ee" + std::string(2 - digits.size(), '0') + digits;
}

std::vector<std::vector<std::string>> lists() {
  std::vector<std::vector<std::string>> all;
  for (const std::size_t size : {1U, 2U, 62U, 63U, 64U}) {
    std::vector<std::string> plain;
    while (plain.size() < size) plain.push_back(entry(plain.size()));
    all.push_back(plain);
    for (const std::size_t at : {std::size_t{0}, size / 2, size - 1}) {
      std::vector<std::string> list = plain;
      list[at] = candidate;
      all.push_back(list);
    }
    plain.back() = plain.front();
    all.push_back(plain);
  }
  return all;
}

// Every state with such a list: with and without the candidate, each count, far from the last generation and near it.
std::vector<BootState> states() {
  std::vector<BootState> all;
  for (const std::vector<std::string>& list : lists()) {
    for (std::uint32_t attemptCount = 0; attemptCount <= 4; ++attemptCount) {
      for (const std::uint64_t toTheTop : {1000U, 3U, 2U, 1U}) {
        BootState state;
        state.generation = lastGeneration - toTheTop;
        state.active = "aaaa";
        state.candidate = candidate;
        state.attemptCount = attemptCount;
        state.rejected = list;
        all.push_back(state);
        state.candidate.reset();
        all.push_back(state);
      }
    }
  }
  return all;
}

testing::AssertionResult holds(const Step& step, const LauncherModel& expected) {
  if (const char* rule = brokenRule(step)) {
    return testing::AssertionFailure() << "this does not hold: " << rule << "\nin force: " << text(*step.inForce)
                                       << "\nafter:" << text(*step.after);
  }
  return decision_support::sameModel(*step.after, expected);
}

SlotNames everySlot() {
  SlotNames all = {"aaaa", "bbbb", candidate};
  for (std::size_t number = 0; number < 64; ++number) all.insert(entry(number));
  return all;
}

StartInput startFrom(const BootState& state, bool isBackup) {
  StartInput input;
  (isBackup ? input.backup : input.primary) = state;
  input.runnableSlots = everySlot();
  input.seedRunnable = true;
  input.candidateTrialAllowed = true;
  input.nextNonce = runningNonce;
  input.now = 5'000;
  return input;
}

// The request may name the entry that a rejection in the same step has just pushed out: then it fits again.
TEST(fullRejectedList, holdsTheRulesAtEveryStart) {
  std::size_t takenIn = 0;
  for (const BootState& state : states()) {
    for (const bool isBackup : {false, true}) {
      for (const std::string& requested : {std::string("bbbb"), candidate, entry(0), entry(1), entry(63)}) {
        for (std::uint64_t bumps = 0; bumps <= 2; ++bumps) {
          StartInput input = startFrom(state, isBackup);
          input.pending = PendingRequest{"request-0001", state.generation + bumps, requested};
          const BootState inForce = stateInForce(input);
          const LauncherModel after = decideStart(input);

          ASSERT_TRUE(holds({.inForce = &inForce, .after = &after, .start = &input}, expectedStart(input)));
          if (after.state.lastRequestId && requested == entry(0)) ++takenIn;
        }
      }
    }
  }
  EXPECT_GT(takenIn, 0U);
}

TEST(fullRejectedList, holdsTheRulesAtEveryFailureOfTheCandidate) {
  SpawnInput failed;
  failed.nextNonce = freshNonce;
  ExitInput ended;
  ended.nextNonce = freshNonce;
  ended.exitCode = 3;
  for (const BootState& state : states()) {
    if (!state.candidate) continue;
    LauncherModel before;
    before.state = state;
    before.runnableSlots = everySlot();
    before.candidateTrialAllowed = true;
    before.nextNonce = runningNonce;
    before.selected = candidate;
    before.selectedKind = kindCandidate;
    const LauncherModel afterStart = decideSpawn(before, failed);
    const LauncherModel afterEnd = decideExit(before, ended);

    ASSERT_TRUE(holds({.inForce = &state, .before = &before, .after = &afterStart, .spawn = &failed},
                      expectedSpawn(before, failed)));
    ASSERT_TRUE(
        holds({.inForce = &state, .before = &before, .after = &afterEnd, .exit = &ended}, expectedExit(before, ended)));
  }
}

}  // namespace
}  // namespace launcher_stub::decision_space
