// The message catalogue, read from docs/messages.md.
#pragma once

#include <string>
#include <string_view>

namespace call_faults {

// Whether the catalogue has this line: as a line of its own or as what a box says.
bool isKnownLine(std::string_view line);
// Whether the catalogue has this text of a box.
bool isKnownBox(std::string_view text);
// Whether a box with this text always means exit code 1.
bool boxMeansFailure(std::string_view text);

}  // namespace call_faults
