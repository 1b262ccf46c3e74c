// What handles this process holds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sample_runtime {

struct HandleFound {
  std::uintptr_t value = 0;
  bool inheritable = false;  // an inherited handle is; one that this process opened for itself normally is not
  bool standard = false;     // it is one of the three standard handles
  std::string type;          // the system's word: "File", "Event", "Process", ...
  std::string name;          // of a file on a disk: its full path; else empty
};

// Tries each value from 4 to `highest`. To be called before anything else opens or closes handles.
std::vector<HandleFound> probeHandles(std::uintptr_t highest);

// "VALUE inheritable|own [standard] TYPE [NAME]", and " [launch.lock]" where it is the launcher's lease.
std::string describe(const HandleFound& handle);

}  // namespace sample_runtime
