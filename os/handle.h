// One owner for each operating-system handle.
#pragma once

#include <memory>

namespace launcher_stub::os {

// Closes a handle and keeps the last error, so that leaving a scope never changes the error being reported.
struct HandleCloser {
  void operator()(void* handle) const noexcept;
};

// An owned handle. "No handle" is null and nothing else; a plain `void*` argument elsewhere is borrowed.
using OwnedHandle = std::unique_ptr<void, HandleCloser>;

// The only way in: takes over a handle as the system returned it. Both ways in which the system says "no handle"
// (null and the all-ones value) become null.
OwnedHandle adoptHandle(void* raw) noexcept;

}  // namespace launcher_stub::os
