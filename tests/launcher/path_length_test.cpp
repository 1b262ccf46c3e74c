// How long a state root may be. Without long paths, which the manifest asks for and the machine's policy has to allow,
// Windows finds nothing at a path of more than 259 code units.

#include <gtest/gtest.h>

#include <string>

#include "slots/file_names.h"
#include "slots/slot_store.h"
#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

constexpr std::size_t longestPath = 259;      // code units, without the terminating zero
constexpr std::size_t longestProcessId = 10;  // digits of 2^32 - 1

// "\attempts\" with a nonce of 32 digits, the record's name, and the suffix of its temporary file: ".tmp-", the process
// id, "-" and 32 digits.
constexpr std::size_t behindRoot(std::size_t processIdDigits) {
  return std::wstring_view(L"\\attempts\\").size() + 32 + 1 + files::bootState.size() + 5 + processIdDigits + 1 + 32;
}
constexpr std::size_t longestRoot = longestPath - behindRoot(longestProcessId);

std::wstring rootOf(std::size_t length) {
  std::wstring root = L"C:\\";
  return root.append(length - root.size(), L'r');
}

// The length of a path.
std::size_t inLongestNamedSlot(std::size_t rootLength, std::wstring_view file) {
  return slotDirectory(rootOf(rootLength), std::string(64, 'a')).size() + 1 + file.size();
}

// Sees the longest path that the launcher itself uses.
struct LongestPath : sim::Observer {
  void calls(Call /*call*/, std::wstring_view path) override {
    if (path.size() > text.size()) text = path;
  }
  std::wstring text;
};

void prepare(SimOs& sim, std::size_t rootLength) {
  const std::wstring root = rootOf(rootLength);
  sim.setStateRoot(root);
  sim.writeBootstrap(sim::bootstrapDocument(std::string(root.begin(), root.end())));
}

// The process ids of the simulated machine.
constexpr std::size_t simulatedIdDigits = 4;

TEST(stateRootLength, mayBe156UnitsWhateverTheProcessIdAndTheSlot) {
  EXPECT_EQ(longestRoot, 156u);
  EXPECT_LE(inLongestNamedSlot(longestRoot, files::entry), longestPath);
  EXPECT_LE(inLongestNamedSlot(longestRoot, files::complete), longestPath);
  EXPECT_LE(inLongestNamedSlot(longestRoot, files::delivery), longestPath);
}

TEST(stateRootLength, couldBe171UnitsForTheLongestNamedSlotAlone) {
  EXPECT_EQ(inLongestNamedSlot(171, files::delivery), longestPath);
  EXPECT_EQ(inLongestNamedSlot(172, files::delivery), longestPath + 1);
  EXPECT_EQ(inLongestNamedSlot(175, files::entry), longestPath);
  EXPECT_EQ(inLongestNamedSlot(176, files::entry), longestPath + 1);
}

// Every document, slot and attempt of a long life: a first run, a request, a candidate that is promoted, a restart.
TEST(stateRootLength, isExceededMostByTheTemporaryFileOfAnAttemptsRecord) {
  SimOs sim;
  prepare(sim, 100);
  const std::string slot(64, 'c');
  sim.installSeed({Runtime().readyAt(10).requestsUpdateAt(20, "request-1", slot).exitsAt(1'000, 0)});
  sim.install(slot, {restarting(), Runtime::healthy()});
  LongestPath longest;
  sim.observe(&longest);

  EXPECT_EQ(sim.runLauncher(), 0) << sim.trace();
  EXPECT_EQ(sim.runLauncher(), 0) << sim.trace();

  sim.observeNoLonger();
  EXPECT_EQ(sim.bootState()->active, slot);
  EXPECT_EQ(longest.text.size(), 100 + behindRoot(simulatedIdDigits));
  EXPECT_NE(longest.text.find(L"boot-v1.json.tmp-"), std::wstring::npos);
}

TEST(stateRootLength, atTheLimitStartsTheSlotWithTheLongestName) {
  SimOs sim;
  prepare(sim, longestPath - behindRoot(simulatedIdDigits));
  sim.setLongestPath(longestPath);
  const std::string slot(64, 'a');
  sim.install(slot, readyAndEnding(1'000, 7));
  sim.writeBootState(storedState(5, slot));

  EXPECT_EQ(sim.runLauncher(), 7) << sim.trace();

  EXPECT_EQ(sim.started(), Names{slot});
  EXPECT_EQ(sim.lines(), Lines{});
}

// Not silently, and not by half: nothing that could not be written down is started.
TEST(stateRootLength, oneAboveTheLimitIsReportedAndStartsNothing) {
  SimOs sim;
  prepare(sim, longestPath - behindRoot(simulatedIdDigits) + 1);
  sim.setLongestPath(longestPath);
  installTrusted(sim);
  const BootState before = storedState(5, "aaaa");
  sim.writeBootState(before);

  EXPECT_EQ(sim.runLauncher(), 1) << sim.trace();

  EXPECT_EQ(sim.started(), Names{});
  EXPECT_EQ(boxTexts(sim), Lines{"cannot write launcher state"});
  EXPECT_EQ(sim.read(sim.statePath(L"boot-v1.json")), sim::bootStateDocument(before));
}

}  // namespace
}  // namespace launcher_stub
