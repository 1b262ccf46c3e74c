#include "tests/sweeps/life_plan.h"

#include <iterator>
#include <string_view>

namespace launcher_stub::sweeps {
namespace {

constexpr std::string_view blowNames[] = {
    "killAtChange", "killAtTime",        "powerCutAtChange",   "powerCutAtTime", "powerCutBetween",    "callFails",
    "outageAtCall", "outageAtTime",      "startFailsInOutage", "secondAtCall",   "secondAtTime",       "stateHeld",
    "lockHeld",     "directoryHeld",     "executableHeld",     "stateDamaged",   "previousDamaged",    "bothDamaged",
    "slotDeleted",  "executableSpoiled", "seedGone",           "seedReplaced",   "requestLeft",        "bootstrapNewer",
    "bootstrapBad", "ownerChanged",      "listDrifted",        "machineSleeps",  "restartOfTheMachine"};
static_assert(std::size(blowNames) == static_cast<std::size_t>(Blow::count_));

constexpr std::string_view actNames[] = {"update",     "slotOnly", "request", "restart", "strangeMarkers",
                                         "grandchild", "lingers",  "holds",   "rubbish"};
static_assert(std::size(actNames) == static_cast<std::size_t>(Act::count_));

constexpr std::string_view buildNames[] = {"good", "crashing", "crashingLater", "silent", "late"};
static_assert(std::size(buildNames) == static_cast<std::size_t>(Build::count_));

// Off in about a third of all lives, else uneven: 1 to 27 in powers of three.
unsigned drawWeight(Chance& chance) {
  if (chance.oneIn(3)) return 0;
  unsigned weight = 1;
  for (int i = 0; i < 3 && chance.oneIn(2); ++i) weight *= 3;
  return weight;
}

template <typename Weights, typename Names>
std::string list(const Weights& weights, const Names& names) {
  std::string text;
  for (std::size_t i = 0; i < weights.size(); ++i) {
    if (weights[i] == 0) continue;
    text += (text.empty() ? "" : ", ") + std::string(names[i]) + " " + std::to_string(weights[i]);
  }
  return text.empty() ? "none" : text;
}

}  // namespace

LifePlan drawPlan(Chance& chance) {
  LifePlan plan;
  for (unsigned& weight : plan.blows) weight = drawWeight(chance);
  for (unsigned& weight : plan.acts) weight = drawWeight(chance);
  for (unsigned& weight : plan.builds) weight = drawWeight(chance);
  plan.builds[static_cast<std::size_t>(Build::good)] += 3;  // without a promotion now and then little else happens
  plan.mostBlows = static_cast<unsigned>(chance.between(0, 3));
  plan.mostActs = static_cast<unsigned>(chance.between(1, 4));
  plan.quietOneIn = static_cast<unsigned>(chance.between(3, 12));
  plan.longOneIn = static_cast<unsigned>(chance.between(500, 5'000));
  plan.deliveries = !chance.oneIn(3);
  plan.volumeKeepsLists = !chance.oneIn(8);
  plan.memberOfAdministrators = chance.oneIn(2);
  plan.nearTheLastGeneration = chance.oneIn(8);
  plan.rejectedAtFirst = chance.oneIn(4) ? static_cast<unsigned>(chance.between(60, 64)) : 0;
  return plan;
}

std::string describe(const LifePlan& plan) {
  return "blows: " + list(plan.blows, blowNames) + "; at most " + std::to_string(plan.mostBlows) +
         " for one launch\nacts: " + list(plan.acts, actNames) + "; at most " + std::to_string(plan.mostActs) +
         " of one runtime\nbuilds: " + list(plan.builds, buildNames) + "\nquiet: 1 launch in " +
         std::to_string(plan.quietOneIn) + "; deliveries: " + (plan.deliveries ? "yes" : "no") +
         "; lists kept: " + (plan.volumeKeepsLists ? "yes" : "no") +
         "; near the last generation: " + (plan.nearTheLastGeneration ? "yes" : "no") +
         "; rejected at first: " + std::to_string(plan.rejectedAtFirst) + "\n";
}

}  // namespace launcher_stub::sweeps
