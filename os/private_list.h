// The private access-control list: how it is built, and how an existing one is judged against it. Everything here works
// on bytes in memory; only the three identifiers are asked of the system.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace launcher_stub::os {

// A structure in the layout that the system defines for it, with its exact size. Empty: it could not be had.
using SystemBytes = std::vector<std::uint8_t>;
using Sid = SystemBytes;  // a security identifier

Sid currentUserSid();     // of the user of this process's token
Sid localSystemSid();     // S-1-5-18
Sid administratorsSid();  // S-1-5-32-544, the built-in group

bool sameSid(const Sid& a, const void* b);

// The list that admits `user` and `system`, in this order, with full access that files and directories below inherit.
// One entry where the two are the same account. Sized exactly.
SystemBytes buildPrivateList(const Sid& user, const Sid& system);

// What a new directory is created with: owned by `user`, `list` as its access list, nothing inherited from above.
// Self-contained; holds no pointer to its arguments.
SystemBytes buildPrivateDescriptor(const Sid& user, const SystemBytes& list);

// True when an existing list is the private one: there at all (`existing` is null where it is not), protected against
// inheritance by its descriptor's `control` bits, and entry by entry equal to `wanted` in every byte and in order.
bool isPrivateList(const void* existing, std::uint16_t control, const SystemBytes& wanted);

// Who owns an existing directory, as seen by the current user.
struct OwnerFacts {
  bool isUser = false;
  bool isAdministrators = false;
  std::optional<bool> userIsMember;  // of the administrators; none where the system could not tell
};

enum class OwnerVerdict {
  accepted,  // the current user's own
  takeOver,  // the administrators' group owns it and the user belongs to it
  foreign,   // another account's
  unknown,   // the administrators' group owns it and membership could not be told
};

OwnerVerdict judgeOwner(const OwnerFacts& facts);

}  // namespace launcher_stub::os
