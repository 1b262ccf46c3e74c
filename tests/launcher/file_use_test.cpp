// How often a launch opens what, and that it keeps nothing open but the two locks: others may replace, scan and remove
// the files of a runtime that runs.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>

#include "tests/launcher/scenario.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub {
namespace {

using Opens = std::map<std::string, int>;  // by the last element of the path

// Counts what is opened, before the first start and from then on.
class OpenCount : public sim::Observer {
 public:
  void calls(Call call, std::wstring_view path) override {
    if (call != Call::readFile && call != Call::lockTry && call != Call::createTemporary) return;
    std::string name = sim::printable(path.substr(path.find_last_of(L"\\/") + 1));
    name = name.substr(0, name.find(".tmp-"));
    if (call == Call::createTemporary) name += " to write";
    ++(started_ ? after : before)[name];
  }
  void starts(const sim::Start& /*start*/) override { started_ = true; }

  Opens before;
  Opens after;

 private:
  bool started_ = false;
};

TEST(fileUse, aPlainLaunchOpensEachFileOnceBeforeItsRuntimeRuns) {
  SimOs sim;
  installTrusted(sim);
  sim.install("aaaa", readyAndEnding(1'000));
  sim.writeBootState(storedState(5, "aaaa"));
  OpenCount opens;
  sim.observe(&opens);

  EXPECT_EQ(sim.runLauncher(), 0) << sim.trace();

  sim.observeNoLonger();
  EXPECT_EQ(opens.before, (Opens{{"bootstrap-v1.json", 1},
                                 {"launch.lock", 1},
                                 {"state.lock", 1},
                                 {"boot-v1.json", 1},
                                 {"pending-v1.json", 1},
                                 {"boot-v1.json to write", 1}}))
      << "the last one is the attempt's record";
}

TEST(fileUse, aPlainRunReadsTheReadyMarkerUntilItIsThereAndTheRequestOnceMoreAtItsEnd) {
  SimOs sim;
  sim.install("aaaa", Runtime().readyAt(900).exitsAt(60'000, 0));
  sim.writeBootState(storedState(5, "aaaa"));
  OpenCount opens;
  sim.observe(&opens);

  EXPECT_EQ(sim.runLauncher(), 0) << sim.trace();

  sim.observeNoLonger();
  EXPECT_EQ(opens.after, (Opens{{"ready-v1", 5}, {"pending-v1.json", 1}})) << "at 0, 250, 500, 750 and 1000 ms";
}

TEST(fileUse, aCandidatesMarkersAreReadNoMoreOnceTheyAreThere) {
  SimOs sim;
  installTrial(sim, Runtime().readyAt(100).healthyAt(900).exitsAt(200'000, 0));
  OpenCount opens;
  sim.observe(&opens);

  EXPECT_EQ(sim.runLauncher(), 0) << sim.trace();

  sim.observeNoLonger();
  EXPECT_EQ(sim.bootState()->active, "bbbb");
  EXPECT_EQ(opens.after, (Opens{{"ready-v1", 2},
                                {"healthy-v1", 5},
                                {"state.lock", 1},
                                {"boot-v1.previous.json to write", 1},
                                {"boot-v1.json to write", 1},
                                {"pending-v1.json", 1}}))
      << "the promotion takes the lock and writes both states, and that is all";
}

TEST(fileUse, eachDeliveryRecordIsReadOnce) {
  SimOs sim;
  installTrusted(sim);
  sim.install("bbbb", Runtime::healthy());
  for (const char* slot : {"seed", "aaaa", "bbbb"}) sim.writeDelivery(slot, 'd');
  sim.writeBootState(storedState(5, "aaaa", "", "bbbb"));
  OpenCount opens;
  sim.observe(&opens);

  EXPECT_EQ(sim.runLauncher(), 0) << sim.trace();

  sim.observeNoLonger();
  EXPECT_EQ(opens.before["delivery-v1.json"], 3) << "the seed's and one of each slot";
  EXPECT_EQ(opens.after["delivery-v1.json"], 0);
}

// Looks at what the launcher has open whenever the runtime starts and between two ticks.
class OpenWhileRunning : public sim::Observer {
 public:
  explicit OpenWhileRunning(SimOs& sim) : sim_(sim) {}
  void starts(const sim::Start& /*start*/) override { look(); }
  void sleeps() override { look(); }

  int looks = 0;

 private:
  void look() {
    ++looks;
    EXPECT_TRUE(sim_.launcherHolds(L"launch.lock"));
    EXPECT_FALSE(sim_.launcherHolds(L"state.lock"));
    for (const wchar_t* name :
         {L"entry-v1.exe", L"COMPLETE-v1", L"delivery-v1.json", L"boot-v1.json", L"boot-v1.previous.json",
          L"pending-v1.json", L"bootstrap-v1.json", L"ready-v1", L"healthy-v1", L"restart-v1.json"}) {
      EXPECT_FALSE(sim_.launcherHolds(name)) << sim::printable(name);
    }
  }

  SimOs& sim_;
};

TEST(fileUse, nothingButTheLeaseIsOpenWhileTheRuntimeRuns) {
  SimOs sim;
  installTrial(sim, Runtime().readyAt(100).healthyAt(900).exitsAt(200'000, 0));
  OpenWhileRunning looks(sim);
  sim.observe(&looks);

  EXPECT_EQ(sim.runLauncher(), 0) << sim.trace();

  sim.observeNoLonger();
  EXPECT_GT(looks.looks, 790) << "four times a second for 200 s";
}

}  // namespace
}  // namespace launcher_stub
