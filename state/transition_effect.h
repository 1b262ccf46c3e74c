// One entry of a transition's effect list. The decision step queues them; only applyTransition carries them out.
#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "state/attempt_record.h"
#include "state/boot_state.h"

namespace launcher_stub {

// The values are fixed.
enum class EffectKind : std::uint32_t {
  WriteBootState = 0,
  BeginAttempt = 1,
  StartRuntime = 2,
  EndRuntimeTree = 3,
  ClearPending = 4,
  ReportError = 5,
  Exit = 6,
  RequestRelaunch = 7,
};

struct TransitionEffect {
  std::int32_t number = 0;   // StartRuntime: the runtime kind, 3 for the seed; Exit: the exit code
  std::wstring slot;         // StartRuntime: the slot directory's name
  std::wstring attemptName;  // BeginAttempt: the attempt directory's name, which is the record's nonce

  // WriteBootState: the whole state; BeginAttempt: the attempt record; ReportError: the message; else nothing.
  std::variant<std::monostate, BootState, AttemptRecord, std::string> record;

  bool requireRunning = false;  // WriteBootState: only while the runtime is still running
  bool savePrevious = false;    // WriteBootState: keep the state in force as "boot-v1.previous.json" first
  EffectKind kind = EffectKind::WriteBootState;

  bool operator==(const TransitionEffect&) const = default;
};

}  // namespace launcher_stub
