// A window such as a real application has.
#pragma once

#include <cstdint>

namespace sample_runtime {

// Shows a small window and comes back when it has been closed, or after `limit` milliseconds. `ignoresClose`: the
// window stays when it is asked to close. False: no window could be created.
bool showWindowUntilClosed(std::uint32_t limit, bool ignoresClose);

}  // namespace sample_runtime
