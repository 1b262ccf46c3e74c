// "boot-v1.json": the launcher's memory between runs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace launcher_stub {

constexpr std::size_t maxRejectedSlots = 64;

struct BootState {
  std::uint64_t generation = 0;              // one more at every generation-bumping write; never less
  std::optional<std::string> active;         // slot currently trusted
  std::optional<std::string> previous;       // slot that was active before the last promotion
  std::optional<std::string> candidate;      // slot under trial
  std::optional<std::string> lastRequestId;  // of the last pending request taken in
  std::uint32_t attemptCount = 0;            // starts of the current candidate
  std::vector<std::string> rejected;         // slots given up on, oldest first; at most 64
  bool recovered = false;                    // restored from "boot-v1.previous.json"

  bool operator==(const BootState&) const = default;
};

// False: `error` says what is wrong first, and `state` is to be discarded.
bool readBootState(std::string_view document, BootState& state, std::string& error);

// The document's text; readBootState gives back the same state.
std::string writeBootState(const BootState& state);

}  // namespace launcher_stub
