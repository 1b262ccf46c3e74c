// What a launch iteration reads before it decides.
#pragma once

#include <string>

#include "slots/slot_store.h"
#include "state/decision.h"

namespace launcher_stub {

// What a launcher does in the middle of its reading. Who only looks leaves both null: then nothing is changed, and
// nothing said.
struct StartChores {
  void (*beforeSlots)(const std::wstring& stateRoot, StartInput& input) = nullptr;  // once the documents have been read
  ForeignDeliveryReport foreignDelivery = nullptr;
};

// Reads the stored state, the pending request (unless the bootstrap was not understood), and which of the slots that
// they name can be started. `seedEntryPath`: the seed's executable. The nonce, the durations and the time are left to
// the caller.
StartInput gatherStartInput(const std::wstring& stateRoot, const std::wstring& seedEntryPath, bool bootstrapUnderstood,
                            const StartChores& chores);

// The state that was read; null for none. The pointer is good as long as `input` is unchanged.
inline const BootState* storedState(const StartInput& input) {
  if (input.primary) return &*input.primary;
  return input.backup ? &*input.backup : nullptr;
}

}  // namespace launcher_stub
