// What the tests of the decision step share: builders for inputs, models and expected effect lists, and comparisons
// whose failure prints both sides as text.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "state/decision.h"
#include "state/launcher_model.h"
#include "state/transition_effect.h"

namespace launcher_stub::decision_support {

using Effects = std::vector<TransitionEffect>;

constexpr std::uint64_t lastGeneration = std::numeric_limits<std::uint64_t>::max();

// Every builder gives a list, so that parts are joined in the order in which they are expected.
inline Effects joined(std::initializer_list<Effects> parts) {
  Effects all;
  for (const Effects& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

inline Effects plainEffect(EffectKind kind) {
  TransitionEffect effect;
  effect.kind = kind;
  return {effect};
}

inline Effects writeOf(const BootState& state) {
  Effects list = plainEffect(EffectKind::WriteBootState);
  list.front().record = state;
  return list;
}

inline Effects bumpingWriteOf(const BootState& state) {
  Effects list = writeOf(state);
  list.front().savePrevious = true;
  return list;
}

inline Effects promotionWriteOf(const BootState& state) {
  Effects list = bumpingWriteOf(state);
  list.front().requireRunning = true;
  return list;
}

inline Effects attemptOf(std::uint32_t kind, const std::string& slot, const std::string& nonce,
                         std::uint64_t startedAt) {
  Effects begin = plainEffect(EffectKind::BeginAttempt);
  begin.front().record = AttemptRecord{slot, nonce, startedAt};
  begin.front().attemptName.assign(nonce.begin(), nonce.end());

  Effects start = plainEffect(EffectKind::StartRuntime);
  start.front().number = static_cast<std::int32_t>(kind);
  start.front().slot.assign(slot.begin(), slot.end());
  return joined({begin, start});
}

inline Effects exitWith(std::int32_t code) {
  Effects list = plainEffect(EffectKind::Exit);
  list.front().number = code;
  return list;
}

inline Effects messageAndExit(const std::string& message) {
  Effects report = plainEffect(EffectKind::ReportError);
  report.front().record = message;
  return joined({report, exitWith(1)});
}

inline Effects noRunnableRuntime() { return messageAndExit("No runnable runtime"); }
inline Effects generationOverflow() { return messageAndExit("generation overflow"); }

// Generation 7, one start of the candidate counted, one slot already rejected; every optional field is filled.
inline BootState storedState() {
  BootState state;
  state.generation = 7;
  state.active = "aaaa";
  state.previous = "bbbb";
  state.candidate = "cccc";
  state.lastRequestId = "request-0001";
  state.attemptCount = 1;
  state.rejected = {"eeee"};
  return state;
}

inline SlotNames allSlots() { return {"aaaa", "bbbb", "cccc", "dddd"}; }

inline StartInput startWithout() {
  StartInput input;
  input.runnableSlots = allSlots();
  input.seedRunnable = true;
  input.candidateTrialAllowed = true;
  input.nextNonce = "nonce-0001";
  input.now = 5'000;
  return input;
}

inline StartInput startFrom(const BootState& primary) {
  StartInput input = startWithout();
  input.primary = primary;
  return input;
}

// A request that storedState() takes in.
inline PendingRequest requestFor(const std::string& candidate, std::uint64_t generation = 7) {
  PendingRequest request;
  request.requestId = "request-0002";
  request.expectedGeneration = generation;
  request.candidate = candidate;
  return request;
}

// An attempt in the middle of its life: started at 1000000 ms with "nonce-0001". Its effect list is the one of its
// start, so that a step that does not begin with an empty list is seen.
inline LauncherModel runningModel(std::uint32_t kind) {
  const char* const slots[] = {"cccc", "aaaa", "bbbb", "seed"};
  LauncherModel model;
  model.state = storedState();
  model.runnableSlots = allSlots();
  model.seedRunnable = true;
  model.candidateTrialAllowed = true;
  model.nextNonce = "nonce-0001";
  model.selected = slots[kind];
  model.selectedKind = kind;
  model.startTime = 1'000'000;
  model.effects = attemptOf(kind, slots[kind], "nonce-0001", 5'000);
  return model;
}

// What a choice does to the fields of a model besides queueing.
inline void expectChosen(LauncherModel& expected, std::uint32_t kind, const std::string& slot) {
  expected.selected = slot;
  expected.selectedKind = kind;
  expected.startTime = 0;
  expected.markTime = 0;
  expected.promotionMarkSeen = false;
  expected.timeoutQueued = false;
}

inline std::string text(const std::optional<std::string>& name) { return name.value_or("-"); }

template <typename Names>
std::string textOfNames(const Names& names) {
  std::string all = "[";
  for (const std::string& name : names) all += (all.size() > 1 ? " " : "") + name;
  return all + "]";
}

inline std::string text(const BootState& state) {
  std::ostringstream out;
  out << "{generation " << state.generation << ", active " << text(state.active) << ", previous "
      << text(state.previous) << ", candidate " << text(state.candidate) << ", request " << text(state.lastRequestId)
      << ", attemptCount " << state.attemptCount << ", rejected " << textOfNames(state.rejected)
      << (state.recovered ? ", recovered}" : "}");
  return out.str();
}

struct RecordText {
  std::string operator()(std::monostate) const { return ""; }
  std::string operator()(const BootState& state) const { return " " + text(state); }
  std::string operator()(const AttemptRecord& record) const {
    return " {" + record.slot + ", " + record.nonce + ", at " + std::to_string(record.startedAt) + "}";
  }
  std::string operator()(const std::string& message) const { return " \"" + message + "\""; }
};

inline std::string narrow(const std::wstring& wide) {
  std::string all;
  for (const wchar_t unit : wide) all += unit < 0x80 ? static_cast<char>(unit) : '?';
  return all;
}

inline std::string text(const TransitionEffect& effect) {
  static const char* const names[] = {"WriteBootState", "BeginAttempt", "StartRuntime", "EndRuntimeTree",
                                      "ClearPending",   "ReportError",  "Exit",         "RequestRelaunch"};
  std::ostringstream out;
  out << names[static_cast<std::size_t>(effect.kind)] << " number " << effect.number;
  if (!effect.slot.empty()) out << " slot " << narrow(effect.slot);
  if (!effect.attemptName.empty()) out << " attempt " << narrow(effect.attemptName);
  if (effect.savePrevious) out << " savePrevious";
  if (effect.requireRunning) out << " requireRunning";
  out << std::visit(RecordText(), effect.record);
  return out.str();
}

inline std::string text(const Effects& effects) {
  std::string all;
  for (const TransitionEffect& effect : effects) all += "\n    " + text(effect);
  return all.empty() ? "\n    (none)" : all;
}

inline std::string text(const LauncherModel& model) {
  std::ostringstream out;
  out << "\n  state " << text(model.state) << "\n  runnable " << textOfNames(model.runnableSlots)
      << (model.seedRunnable ? ", seed runnable" : ", seed not runnable")
      << (model.candidateTrialAllowed ? ", trial allowed" : ", trial not allowed") << ", failed "
      << textOfNames(model.failedThisRun) << "\n  selected " << text(model.selected) << " kind " << model.selectedKind
      << " nonce " << model.nextNonce << ", start " << model.startTime << ", mark " << model.markTime << ", durations "
      << model.firstDuration << " " << model.secondDuration
      << "\n  seen:" << (model.promotionMarkSeen ? " healthy" : "") << (model.settledMarkSeen ? " ready" : "")
      << (model.timeoutQueued ? " timeout" : "") << "\n  effects" << text(model.effects);
  return out.str();
}

// The whole model, so that a field that should have been kept or cleared cannot slip through.
inline testing::AssertionResult sameModel(const LauncherModel& actual, const LauncherModel& expected) {
  if (actual == expected) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "\nactual:" << text(actual) << "\nexpected:" << text(expected);
}

inline testing::AssertionResult sameState(const BootState& actual, const BootState& expected) {
  if (actual == expected) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "\nactual:   " << text(actual) << "\nexpected: " << text(expected);
}

inline testing::AssertionResult sameEffects(const Effects& actual, const Effects& expected) {
  if (actual == expected) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "\nactual:" << text(actual) << "\nexpected:" << text(expected);
}

}  // namespace launcher_stub::decision_support
