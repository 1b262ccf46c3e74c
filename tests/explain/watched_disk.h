// Sees to it that nothing but reading happens on the simulated machine.
#pragma once

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/simulation/sim_os.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::explain {

class WatchedDisk : public sim::Observer {
 public:
  explicit WatchedDisk(sim::SimOs& sim) : sim_(sim), before_(sim.disk()), changePoints_(sim.changePoints()) {
    sim_.observe(this);
  }
  ~WatchedDisk() override { sim_.observeNoLonger(); }
  WatchedDisk(const WatchedDisk&) = delete;
  WatchedDisk& operator=(const WatchedDisk&) = delete;

  void calls(sim::Call call, std::wstring_view path) override {
    static const std::set<sim::Call> reading = {
        sim::Call::status,    sim::Call::readFile,  sim::Call::listDirectory,      sim::Call::entryStatus,
        sim::Call::entryTime, sim::Call::nextEntry, sim::Call::environmentVariable};
    if (!reading.contains(call)) others_ += " " + std::string(sim::callName(call));
    if (path.ends_with(L".lock")) others_ += " a look at " + sim::printable(path);
  }

  // Every byte and every time is as it was, and nothing was called but what reads; no lock file was looked at.
  void expectUntouched() const {
    EXPECT_EQ(others_, "");
    EXPECT_TRUE(sim_.disk() == before_);
    EXPECT_EQ(sim_.changePoints(), changePoints_);
  }

 private:
  sim::SimOs& sim_;
  sim::Disk before_;
  std::uint64_t changePoints_;
  std::string others_;
};

}  // namespace launcher_stub::explain
