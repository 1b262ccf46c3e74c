// Order among an object's members. Internal to json/.
#pragma once

#include <cstddef>
#include <cstdint>

#include "json/value.h"

namespace launcher_stub {

// A member's place in its object while the members are being sorted.
struct KeyPlace {
  std::uint64_t word = 0;   // a part of the key
  std::uint32_t index = 0;  // the member's
};

// Sorts `count` members at `members` by key. `places`: room for twice as many. False: two keys are the same, and the
// order of the members is undefined.
bool sortMembers(JsonMember* members, std::size_t count, KeyPlace* places);

}  // namespace launcher_stub
