// Every text that the slot store, the commit and the pruning report.
#pragma once

#include <string_view>

namespace launcher_stub::messages {

// Followed by the slot's name and then the second text.
constexpr std::string_view ignoringSlot = "ignoring slot ";
constexpr std::string_view deliveryDiffers = ": delivery differs from seed";

constexpr std::string_view cannotEndTree = "cannot end runtime process tree";

// Followed by the system's message text.
constexpr std::string_view cannotPrune = "cannot prune old attempt: ";

}  // namespace launcher_stub::messages
