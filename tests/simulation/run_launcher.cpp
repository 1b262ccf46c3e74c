#include "launcher/launch_sequence.h"
#include "tests/simulation/sim_os.h"

namespace launcher_stub::sim {

int SimOs::runLauncher() {
  return runProcess([this] {
    process_.runsLaunchSequence = true;
    return run(nullptr, nullptr);
  });
}

}  // namespace launcher_stub::sim
