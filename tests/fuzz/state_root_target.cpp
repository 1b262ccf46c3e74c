// A whole launch on files that anybody may have written.
#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

#include "launcher/messages.h"
#include "os/messages.h"
#include "slots/messages.h"
#include "state/messages.h"
#include "tests/fuzz/byte_source.h"
#include "tests/fuzz/fuzz_targets.h"
#include "tests/simulation/sim_os.h"

namespace launcher_stub::fuzz {
namespace {

using sim::Runtime;
using sim::SimOs;

// A line is one of these or begins with it.
constexpr std::string_view knownLines[] = {
    messages::missingBootstrap,
    messages::invalidBootstrapDocument,
    messages::cannotCreateStateRoot,
    messages::cannotAcquireLease,
    messages::stateLockTimeout,
    messages::cannotWriteState,
    messages::ignoringSlot,
    messages::cannotEndTree,
    messages::cannotPrune,
    os::messages::cannotStart,
    messages::noRunnableRuntime,
    messages::generationOverflow,
    os::messages::rootBelongsToAnother,
    os::messages::volumeKeepsNoLists,
    os::messages::listNotPersisted,
    os::messages::listReset,
};

// What the bytes say. Each document ends in a zero byte; an empty one is not there. In what the runtime writes, "$S"
// and
// "$N" stand for the slot and the nonce of its attempt: no input could guess them.
struct Input {
  explicit Input(std::string_view bytes) {
    ByteSource source(bytes);
    exitCode = source.byte();
    exitsAfterMs = 500 + 400 * std::uint64_t{source.byte()};
    slots = source.byte();
    for (std::string_view* document : {&bootstrap, &state, &previous, &pending, &seedDelivery, &slotDelivery, &ready,
                                       &healthy, &restart, &nextPending}) {
      *document = source.takeUntil('\0');
    }
  }

  std::uint32_t exitCode = 0;
  std::uint64_t exitsAfterMs = 0;  // at most 102.5 s: a candidate can be promoted, and never runs into its time limit
  unsigned slots = 0;              // bits: which are installed
  std::string_view bootstrap, state, previous, pending, seedDelivery, slotDelivery;
  std::string_view ready, healthy, restart, nextPending;  // written by the runtime
};

std::string withAttempt(std::string_view document, const sim::RunningRuntime& runtime) {
  std::string result;
  for (std::size_t i = 0; i < document.size(); ++i) {
    const std::string_view two = document.substr(i, 2);
    if (two == "$S" || two == "$N") {
      result += two == "$S" ? runtime.slot() : runtime.nonce();
      ++i;
    } else {
      result += document[i];
    }
  }
  return result;
}

// Only the first starts of a slot leave requests: a runtime that always does is started for ever, and rightly so.
constexpr int startsWithRequests = 3;

Runtime runtimeOf(const Input& input, int startNumber) {
  Runtime runtime;
  const auto leaves = [&](std::uint64_t ms, std::string_view document, const wchar_t* name) {
    if (document.empty()) return;
    runtime.doesAt(ms, [document, name](sim::RunningRuntime& self) {
      self.write(self.attemptPath(name), withAttempt(document, self));
    });
  };
  leaves(100, input.ready, L"ready-v1");
  leaves(200, input.healthy, L"healthy-v1");
  if (startNumber <= startsWithRequests) {
    leaves(300, input.restart, L"restart-v1.json");
    if (!input.nextPending.empty()) {
      runtime.doesAt(400, [document = input.nextPending](sim::RunningRuntime& self) {
        self.write(self.statePath(L"pending-v1.json"), withAttempt(document, self));
      });
    }
  }
  return runtime.exitsAt(input.exitsAfterMs, input.exitCode);
}

void layOut(SimOs& sim, const Input& input) {
  const auto write = [&](const std::wstring& path, std::string_view document) {
    if (!document.empty()) sim.writeFile(path, document);
  };
  const std::array<std::string, 4> slots = {"seed", "aaaa", "bbbb", "cccc"};
  for (std::size_t i = 0; i < slots.size(); ++i) {
    if ((input.slots >> i & 1) == 0) continue;
    sim.install(slots[i], [&input](int startNumber) { return runtimeOf(input, startNumber); });
    write(sim.slotPath(slots[i], L"delivery-v1.json"), i == 0 ? input.seedDelivery : input.slotDelivery);
  }
  sim.remove(sim.installPath(L"bootstrap-v1.json"));
  write(sim.installPath(L"bootstrap-v1.json"), input.bootstrap);
  write(sim.statePath(L"boot-v1.json"), input.state);
  write(sim.statePath(L"boot-v1.previous.json"), input.previous);
  write(sim.statePath(L"pending-v1.json"), input.pending);
}

void requireGoodEnd(SimOs& sim, const Input& input) {
  const int exitCode = sim.runLauncher();
  const sim::RunOutcome& outcome = sim.lastRun();
  require(!outcome.killed && outcome.uncaught.empty(), "the run ends by itself");
  require(exitCode == 0 || exitCode == 1 || exitCode == static_cast<int>(input.exitCode),
          "the exit code is 0, 1 or the child's");
  require(sim.livingProcesses() == 0, "nothing outlives the launcher");
  for (const std::string& line : sim.lines()) {
    const bool isKnown =
        std::ranges::any_of(knownLines, [&](std::string_view known) { return line.starts_with(known); });
    require(isKnown, "a line is one of the known ones: " + line);
  }
  for (const sim::Replacement& replacement : sim.replacements()) {
    BootState state;
    std::string error;
    if (replacement.path != sim.statePath(L"boot-v1.json")) continue;
    require(readBootState(replacement.contents, state, error), "every state written can be read");
  }
  require(sim.takeProblems().empty(), "the platform is used as it is meant to be");
}

void run(std::string_view bytes) {
  const Input input(bytes);
  SimOs sim;
  layOut(sim, input);
  requireGoodEnd(sim, input);
  requireGoodEnd(sim, input);  // what the first run has left is input, too
}

const Registration registered({"state_root", run});

}  // namespace
}  // namespace launcher_stub::fuzz
