// What is explained is what happens: in thousands of installations, the launcher itself then does what was said.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "explain/explain_start.h"
#include "explain/wording.h"
#include "launcher/bootstrap_file.h"
#include "launcher/launch_iteration.h"
#include "os/path.h"
#include "os/state_root.h"
#include "slots/install_layout.h"
#include "tests/explain/random_roots.h"
#include "tests/explain/watched_disk.h"
#include "tests/sweeps/effort.h"

namespace launcher_stub::explain {
namespace {

using sim::Call;
using sim::SimOs;

constexpr std::uint64_t roots = sweeps::thorough ? 10'000 : 2'000;

// Which kind the launcher starts: the launch sequence keeps it to itself, so here its iteration is run by hand.
std::optional<std::uint32_t> kindThatStarts(SimOs& sim, bool bootstrapUnderstood) {
  std::optional<std::uint32_t> kind;
  sim.runProcess([&] {
    LaunchContext context;
    context.stateRoot = sim.stateRoot();
    context.installDirectory = sim.installDirectory();
    context.seedEntryPath = buildInstallLayout(sim.installDirectory()).seedEntryPath;
    for (const wchar_t* name : {L"", L"attempts", L"slots"}) {
      EXPECT_TRUE(os::createPrivateDirectory(os::joinPath(context.stateRoot, name)));
    }
    EXPECT_TRUE(os::openLockFile(context.launchLease, sim.statePath(L"launch.lock"), os::LockWait::none));
    EXPECT_TRUE(os::openLockFile(context.stateLock, sim.statePath(L"state.lock"), os::LockWait::none));
    EXPECT_TRUE(launchIteration(context, bootstrapUnderstood));
    if (!context.exitRequested) kind = context.attemptPhase;
    return 0;
  });
  return kind;
}

// Runs the real launch sequence until the runtime has been started.
void launchOnce(SimOs& sim) {
  sim.before(Call::sleep, L"", [&sim] { sim.killLauncherNow(); });
  sim.runLauncher();
  sim.clearHooks();
}

void expectTheStart(SimOs& sim, const Findings& said) {
  const std::vector<std::string> started = sim.started();
  if (said.startsSomething) {
    ASSERT_EQ(started.size(), 1U);
    EXPECT_EQ(started.front(), said.slot);
  } else {
    EXPECT_TRUE(started.empty());
    EXPECT_EQ(sim.lineCount(said.message), 1) << said.message;
  }
  const auto starting = std::ranges::count(said.slots, Standing::starts, &SlotFinding::standing);
  EXPECT_EQ(starting, said.startsSomething ? 1 : 0);
  if (said.startsSomething && said.kind == kindCandidate) {
    EXPECT_EQ(sim.bootState()->attemptCount, said.candidateStart);
  }
}

void expectTheState(SimOs& sim, const Findings& said, const sim::Disk& before) {
  const sim::Node* stored = before.find(sim.statePath(L"boot-v1.json"));
  if (said.generationAfterStart) {
    EXPECT_EQ(sim.generation(), *said.generationAfterStart);
  } else {
    EXPECT_EQ(sim.read(sim.statePath(L"boot-v1.json")), stored != nullptr ? stored->contents : "");
  }
}

void expectTheRequest(SimOs& sim, const Findings& said, const sim::Disk& before) {
  const bool wasThere = before.find(sim.statePath(L"pending-v1.json")) != nullptr;
  EXPECT_EQ(wasThere && !sim.exists(sim.statePath(L"pending-v1.json")), said.request.removed);
  EXPECT_EQ(said.request.standing == RequestStanding::none, !wasThere);
  if (!said.request.request || !said.state) return;
  const std::optional<BootState> now = sim.bootState();
  const bool taken = now && now->lastRequestId == said.request.request->requestId &&
                     said.state->lastRequestId != said.request.request->requestId;
  EXPECT_EQ(taken, said.request.standing == RequestStanding::takenIn);
}

// A request that names the generation that was said is taken in. Not at the last one: nothing is, there.
void expectTheRequestGeneration(SimOs& sim, const Findings& said) {
  if (!said.requestGeneration || *said.requestGeneration == ~std::uint64_t{0}) return;
  if (sim.disk().find(sim.statePath(L"pending-v1.json")) != nullptr) sim.remove(sim.statePath(L"pending-v1.json"));
  sim.install("eeee", sim::Runtime().readyAt(50));
  sim.writeDelivery("eeee", 'd');
  if (sim.exists(sim.slotPath("seed", L"delivery-v1.json"))) sim.writeDelivery("seed", 'd');
  sim.writePending("request-new", *said.requestGeneration, "eeee");
  // What the seed's delivery was may have decided over a candidate: the generation is asked anew.
  std::string error;
  const std::optional<Findings> now = explainStart({.installDirectory = sim.installDirectory()}, error);
  if (now->requestGeneration != said.requestGeneration) return;

  launchOnce(sim);

  EXPECT_EQ(sim.bootState()->lastRequestId, "request-new");
}

struct Seen {
  std::set<std::string> standings;
  std::set<std::string> requests;
  int asked = 0;
};

void checkRoot(std::uint64_t seed, Seen& seen) {
  SCOPED_TRACE("root " + std::to_string(seed));
  SimOs sim;
  sim.setTracing(false);
  layOutRandomly(sim, seed);
  const sim::Disk before = sim.disk();

  WatchedDisk watched(sim);
  std::string error;
  const std::optional<Findings> said = explainStart({.installDirectory = sim.installDirectory()}, error);
  watched.expectUntouched();
  ASSERT_TRUE(said) << error;
  for (const SlotFinding& slot : said->slots) seen.standings.emplace(wordingOf(slot.standing).code);
  seen.requests.emplace(wordingOf(said->request.standing).code);

  launchOnce(sim);
  expectTheStart(sim, *said);
  expectTheState(sim, *said, before);
  expectTheRequest(sim, *said, before);

  sim.disk() = before;
  if (seed % 4 == 0) {
    const std::optional<std::uint32_t> kind = kindThatStarts(sim, said->bootstrapUnderstood);
    EXPECT_EQ(kind.has_value(), said->startsSomething);
    EXPECT_EQ(kind.value_or(said->kind), said->kind);
  } else if (seed % 4 == 2) {
    expectTheRequestGeneration(sim, *said);
    seen.asked += said->requestGeneration ? 1 : 0;
  }
}

TEST(explainedStart, isTheOneThatTheLauncherMakesInThousandsOfInstallations) {
  Seen seen;

  for (std::uint64_t seed = 1; seed <= roots && !testing::Test::HasFailure(); ++seed) checkRoot(seed, seen);

  EXPECT_EQ(seen.standings,
            (std::set<std::string>{"starts", "comesAfter", "incomplete", "foreignDelivery", "rejected", "startsUsedUp",
                                   "replaced", "bootstrapNewer", "requestNewer", "seedMissing", "generationAtEnd"}));
  EXPECT_EQ(seen.requests, (std::set<std::string>{"none", "takenIn", "unreadable", "newer", "bootstrapNewer",
                                                  "firstRun", "statesUnreadable", "generationAtEnd", "staleGeneration",
                                                  "replayed", "rejected", "incomplete", "foreignDelivery"}));
  EXPECT_GT(seen.asked, 150);
}

}  // namespace
}  // namespace launcher_stub::explain
