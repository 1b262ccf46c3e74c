// The state documents that a launch may leave.
#pragma once

#include <optional>
#include <string>

#include "tests/call_faults/world.h"

namespace call_faults {

// What is wrong with the document that a launch of this kind has left where `first` (empty: nothing) was before; empty
// for nothing. Right is the first one, byte for byte, or one in the launcher's own form that
// - has rejected what the old one had, in that order,
// - trusts the same slot, or the kind's candidate where the kind promotes it,
// - has not counted down while the candidate stayed,
// - has a generation raised by one for each newly rejected slot, each request taken in, a promotion and a recovery.
std::string judgeStep(const LaunchKind& kind, const std::optional<std::string>& found, const std::string& first);

}  // namespace call_faults
