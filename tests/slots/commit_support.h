// What the tests of the transition commit share: a machine with a run in progress, builders for effects, and a record
// of the order in which things are done.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "os/lock_file.h"
#include "slots/install_layout.h"
#include "slots/launch_context.h"
#include "slots/transition_commit.h"
#include "tests/simulation/sim_os.h"

namespace launcher_stub::commit_support {

constexpr const wchar_t* attemptName = L"0123456789abcdef0123456789abcdef";
constexpr const char* attemptNonce = "0123456789abcdef0123456789abcdef";

inline TransitionEffect effectOf(EffectKind kind) {
  TransitionEffect effect;
  effect.kind = kind;
  return effect;
}

inline TransitionEffect writeOf(const BootState& state) {
  TransitionEffect effect = effectOf(EffectKind::WriteBootState);
  effect.record = state;
  return effect;
}

inline TransitionEffect savingWriteOf(const BootState& state) {
  TransitionEffect effect = writeOf(state);
  effect.savePrevious = true;
  return effect;
}

inline TransitionEffect guardedWriteOf(const BootState& state) {
  TransitionEffect effect = savingWriteOf(state);
  effect.requireRunning = true;
  return effect;
}

inline TransitionEffect clearPending() { return effectOf(EffectKind::ClearPending); }

inline TransitionEffect beginAttempt() {
  TransitionEffect effect = effectOf(EffectKind::BeginAttempt);
  effect.attemptName = attemptName;
  effect.record = AttemptRecord{"bbbb", attemptNonce, 4711};
  return effect;
}

inline TransitionEffect startOf(std::int32_t kind, const std::wstring& slot) {
  TransitionEffect effect = effectOf(EffectKind::StartRuntime);
  effect.number = kind;
  effect.slot = slot;
  return effect;
}
inline TransitionEffect startSlot() { return startOf(kindActive, L"bbbb"); }

inline TransitionEffect endTree() { return effectOf(EffectKind::EndRuntimeTree); }

inline TransitionEffect reportOf(const std::string& message) {
  TransitionEffect effect = effectOf(EffectKind::ReportError);
  effect.record = message;
  return effect;
}

inline TransitionEffect exitWith(std::int32_t code) {
  TransitionEffect effect = effectOf(EffectKind::Exit);
  effect.number = code;
  return effect;
}

inline TransitionEffect requestRelaunch() { return effectOf(EffectKind::RequestRelaunch); }

inline LauncherModel modelWith(std::vector<TransitionEffect> effects) {
  LauncherModel model;
  model.effects = std::move(effects);
  return model;
}

inline BootState oldState() { return {.generation = 7, .active = "aaaa", .candidate = "bbbb", .attemptCount = 1}; }
inline BootState newState() { return {.generation = 8, .active = "bbbb", .previous = "aaaa", .rejected = {"eeee"}}; }

// A run between its reading of the state files and its first commit: oldState() is in force and on the disk, a request
// is pending, and the seed and slot "bbbb" can be started (they stay silent).
struct Launch {
  explicit Launch(std::uint64_t startMs = 300'000, const std::wstring& stateRoot = L"C:\\Root") : sim(startMs) {
    sim.setStateRoot(stateRoot);
    sim.makeDirectory(sim.statePath(L"attempts"));
    sim.install("bbbb", sim::Runtime::silent());
    sim.installSeed(sim::Runtime::silent());
    sim.writeBootState(oldState());
    sim.writePending("request-1", 7, "bbbb");

    context.stateRoot = stateRoot;
    context.installDirectory = sim.installDirectory();
    context.seedEntryPath = buildInstallLayout(sim.installDirectory()).seedEntryPath;
    context.arguments = {L"--open", L"a file.txt"};
    context.model.state = oldState();
    context.keepsPrevious = true;
    EXPECT_TRUE(os::openLockFile(context.launchLease, sim.statePath(L"launch.lock"), os::LockWait::none));
  }

  // As the exit and spawn-failure transitions do it, and as a tick does it.
  bool apply(const LauncherModel& model) { return applyTransition(context, model, nullptr, false); }
  bool applyOnTick(const LauncherModel& model) { return applyTransition(context, model, nullptr, true); }

  // Starts slot "bbbb" with the given script.
  void start(const sim::Runtime& runtime) {
    sim.install("bbbb", runtime);
    EXPECT_TRUE(apply(modelWith({startSlot()})));
    EXPECT_TRUE(context.started);
    clearStartFlags(context);
  }

  os::LockFile takeStateLock() {
    os::LockFile lock;
    EXPECT_TRUE(os::openLockFile(lock, sim.statePath(L"state.lock"), os::LockWait::none));
    return lock;
  }
  bool holdsStateLock() { return sim.launcherHolds(L"state.lock"); }

  // The names of the files that were replaced, in order; an attempt's own record with its directory.
  std::vector<std::wstring> replaced() const {
    std::vector<std::wstring> names;
    for (const sim::Replacement& one : sim.replacements()) names.push_back(one.path.substr(sim.stateRoot().size() + 1));
    return names;
  }

  std::wstring attemptPath(const std::wstring& name) const {
    return sim.statePath(L"attempts\\" + std::wstring(attemptName) + L"\\" + name);
  }

  sim::SimOs sim;
  LaunchContext context;
};

// Notes each watched call when it comes, and whether state.lock is held in that moment. The first call of a kind only.
class CallOrder {
 public:
  explicit CallOrder(Launch& launch) : launch_(launch) {}

  CallOrder& watch(sim::Call call, const std::wstring& pattern, const std::string& name) {
    launch_.sim.before(call, pattern, [this, name] {
      calls_.push_back(name + (launch_.holdsStateLock() ? ", locked" : ", unlocked"));
    });
    return *this;
  }

  const std::vector<std::string>& calls() const { return calls_; }

 private:
  Launch& launch_;
  std::vector<std::string> calls_;
};

}  // namespace launcher_stub::commit_support
