// The kinds of launches whose calls are failed.
#include <utility>

#include "state/boot_state.h"
#include "tests/call_faults/world.h"

namespace call_faults {
namespace {

using launcher_stub::BootState;

// In the launcher's own form.
std::string document(const BootState& state) { return launcher_stub::writeBootState(state); }

const BootState trusted{.generation = 5, .active = "aaaa", .rejected = {"dddd", "cccc"}};
const BootState trial{
    .generation = 6, .active = "aaaa", .candidate = "bbbb", .lastRequestId = "request-1", .rejected = {"dddd", "cccc"}};

BootState counted(std::uint32_t starts) {
  BootState state = trial;
  state.attemptCount = starts;
  return state;
}

const std::string request =
    "{\"candidate\":\"bbbb\",\"expectedGeneration\":5,\"requestId\":\"request-2\",\"schemaVersion\":1}";

const RuntimePlan normal{"rw0", 1000};       // ready at once, ends after a second
const RuntimePlan healthy{"rhw0", 70'000};   // lives longer than the soak
const RuntimePlan silent{"gw0", 1'000'000};  // says nothing, and has a grandchild
const RuntimePlan failing{"3", 0};           // ends at once

// Wine cannot remove a link, so there is always one that stays.
std::vector<std::string> whereLinksStay(const std::string& line) {
  return launcher_stub::tests::runsUnderWine() ? std::vector<std::string>{line} : std::vector<std::string>{};
}

constexpr std::uint64_t forEver = 100'000'000;

std::vector<LaunchKind> starts() {
  return {
      {.name = "firstRun",
       .why = "no state root, no state: the seed",
       .root = Root::local,
       .runtimes = {{"seed", normal}},
       .started = {"seed"}},
      {.name = "firstRunElsewhere",
       .why = "a state root named by the bootstrap, with missing directories above",
       .root = Root::missing,
       .runtimes = {{"seed", {"rw5", 500}}},
       .exitCode = 5,
       .started = {"seed"}},
      {.name = "activeStart",
       .why = "the state root is there; the exit code is handed back",
       .state = document(trusted),
       .runtimes = {{"aaaa", {"rw7", 500}}, {"seed", normal}},
       .exitCode = 7,
       .started = {"aaaa"}},
      {.name = "candidateTaken",
       .why = "a pending request is taken in",
       .state = document(trusted),
       .pending = request,
       .runtimes = {{"aaaa", normal}, {"bbbb", healthy}, {"seed", normal}},
       .promoted = "bbbb",
       .started = {"bbbb"}},
      {.name = "promotion",
       .why = "a healthy candidate becomes active after 60 s",
       .state = document(trial),
       .runtimes = {{"aaaa", normal}, {"bbbb", healthy}, {"seed", normal}},
       .promoted = "bbbb",
       .started = {"bbbb"}},
      {.name = "fallThrough",
       .why = "a candidate fails for the third time, and the active slot after it",
       .state = document(counted(2)),
       .runtimes = {{"aaaa", failing}, {"bbbb", failing}, {"seed", normal}},
       .started = {"bbbb", "aaaa", "seed"}},
      {.name = "silentCandidate",
       .why = "a candidate that is not healthy within 120 s is stopped, with its tree",
       .state = document(counted(2)),
       .runtimes = {{"aaaa", normal}, {"bbbb", silent}, {"seed", normal}},
       .started = {"bbbb", "aaaa"}},
      {.name = "relaunch",
       .why = "a restart request begins a new iteration",
       .state = document(trusted),
       .runtimes = {{"aaaa", {"rqw0", 500}}, {"seed", normal}},
       .started = {"aaaa", "aaaa"}},
  };
}

std::vector<LaunchKind> repairs() {
  return {
      {.name = "pruning",
       .why = "old attempts: full, read-only, a link, the newest",
       .state = document(trusted),
       .runtimes = {{"aaaa", normal}, {"seed", normal}},
       .oldAttempts = true,
       .started = {"aaaa"},
       .lines = whereLinksStay("cannot prune old attempt: ")},
      {.name = "recovery",
       .why = "the state is damaged, the copy is not",
       .state = "{\"generation\":9",
       .previous = document(trusted),
       .runtimes = {{"aaaa", normal}, {"seed", normal}},
       .damagedGeneration = 9,
       .started = {"aaaa"}},
      {.name = "nothingReadable",
       .why = "both state files are damaged: the seed, and nothing is written",
       .state = "{",
       .previous = "[]",
       .runtimes = {{"seed", normal}},
       .started = {"seed"}},
      {.name = "brokenExecutable",
       .why = "the candidate's executable is none",
       .state = document(counted(2)),
       .runtimes = {{"aaaa", normal}, {"bbbb", normal}, {"seed", normal}},
       .brokenSlot = "bbbb",
       .started = {"aaaa"},
       .lines = {"cannot start ", "cannot start "}},
      {.name = "foreignDelivery",
       .why = "the active slot is of another delivery than the seed",
       .state = document(trusted),
       .runtimes = {{"aaaa", normal}, {"seed", normal}},
       .foreignSlot = "aaaa",
       .started = {"seed"},
       .lines = {"ignoring slot aaaa: delivery differs from seed"}},
      {.name = "missingBootstrap",
       .why = "nothing can be started",
       .bootstrap = "none",
       .exitCode = 1,
       .lines = {"missing bootstrap-v1.json"},
       .startsAfterwards = false},
      {.name = "invalidBootstrap",
       .why = "nothing can be started",
       .bootstrap = "{}",
       .exitCode = 1,
       .lines = {"invalid bootstrap-v1.json: missing schemaVersion"},
       .startsAfterwards = false},
      {.name = "newerBootstrap",
       .why = "only the state root is taken from it",
       .state = document(trusted),
       .bootstrap = "newer",
       .runtimes = {{"aaaa", normal}, {"seed", normal}},
       .started = {"aaaa"}},
  };
}

std::vector<LaunchKind> circumstances() {
  const std::map<std::string, RuntimePlan> two = {{"aaaa", normal}, {"seed", normal}};
  return {
      {.name = "secondLauncher",
       .why = "the lease is held",
       .state = document(trusted),
       .runtimes = two,
       .circumstances = {.leaseHeldMs = forEver}},
      {.name = "lockHeldForAWhile",
       .why = "state.lock is held for 3 s",
       .state = document(trusted),
       .runtimes = two,
       .circumstances = {.stateLockHeldMs = 3000},
       .started = {"aaaa"}},
      {.name = "lockHeldForLong",
       .why = "state.lock is held for longer than 5 s",
       .state = document(trusted),
       .runtimes = two,
       .circumstances = {.stateLockHeldMs = forEver},
       .exitCode = 1,
       .lines = {"state lock timeout"}},
      {.name = "renamesRefusedFor1900",
       .why = "one replacement waits long enough",
       .state = document(trusted),
       .pending = request,
       .runtimes = {{"aaaa", normal}, {"bbbb", healthy}, {"seed", normal}},
       .promoted = "bbbb",
       .circumstances = {.renamesRefusedMs = 1900},
       .started = {"bbbb"}},
      {.name = "renamesRefusedFor2100",
       .why = "one replacement gives up, the transition does not",
       .state = document(trusted),
       .pending = request,
       .runtimes = {{"aaaa", normal}, {"bbbb", healthy}, {"seed", normal}},
       .promoted = "bbbb",
       .circumstances = {.renamesRefusedMs = 2100},
       .started = {"bbbb"},
       .lines = {"launch transition write failed; retrying"}},
      {.name = "renamesRefusedForLong",
       .why = "the transition gives up",
       .state = document(trusted),
       .pending = request,
       .runtimes = {{"aaaa", normal}, {"bbbb", healthy}, {"seed", normal}},
       .promoted = "bbbb",
       .circumstances = {.renamesRefusedMs = forEver},
       .exitCode = 1,
       .lines = {"launch transition write failed; retrying", "cannot write launcher state",
                 "launch transition write failed for 30 seconds; exiting"}},
      {.name = "jobsRefuseChildren",
       .why = "no start succeeds",
       .state = document(trusted),
       .runtimes = two,
       .circumstances = {.jobsRefuseChildren = true},
       .exitCode = 1,
       .lines = {"cannot create child job", "cannot start ", "cannot create child job", "cannot start ",
                 "No runnable runtime"}},
      {.name = "treeDoesNotEnd",
       .why = "the runtime leaves a process that cannot be ended",
       .state = document(trusted),
       .runtimes = {{"aaaa", {"rgw0", 500}}, {"seed", normal}},
       .circumstances = {.treeDoesNotEnd = true},
       .started = {"aaaa"},
       .lines = {"cannot end runtime process tree"}},
      {.name = "ofAdministrators",
       .why = "the user takes the state root over from the group",
       .state = document(trusted),
       .runtimes = two,
       .circumstances = {.ownedByAdministrators = true, .userIsAdministrator = true},
       .started = {"aaaa"}},
      {.name = "ofOtherAdministrators",
       .why = "the state root belongs to others",
       .state = document(trusted),
       .runtimes = two,
       .circumstances = {.ownedByAdministrators = true},
       .exitCode = 1,
       .lines = {"state root belongs to another account", "cannot create private state root"}},
      {.name = "listsKept",
       .why = "nothing is to be repaired",
       .state = document(trusted),
       .runtimes = two,
       .circumstances = {.listsKept = true},
       .started = {"aaaa"}},
      {.name = "volumeKeepsNoLists",
       .why = "as on FAT",
       .state = document(trusted),
       .runtimes = two,
       .circumstances = {.volumeKeepsNoLists = true},
       .started = {"aaaa"},
       .lines = {"filesystem does not provide persistent state root ACLs"}},
  };
}

}  // namespace

const std::vector<LaunchKind>& launchKinds() {
  static const std::vector<LaunchKind> all = [] {
    std::vector<LaunchKind> kinds = starts();
    for (auto more : {repairs(), circumstances()}) kinds.insert(kinds.end(), more.begin(), more.end());
    return kinds;
  }();
  return all;
}

}  // namespace call_faults
