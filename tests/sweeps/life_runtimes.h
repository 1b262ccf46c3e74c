// What the runtimes of a random life do: drawn anew at each start, by what their build is like.
#pragma once

#include <string>

#include "tests/sweeps/installation.h"
#include "tests/sweeps/scene.h"

namespace launcher_stub::sweeps {

class LifeRuntimes {
 public:
  LifeRuntimes(Scene& scene, Installation& installation) : scene_(scene), installation_(installation) {}

  sim::Runtime draw(const std::string& slot);

 private:
  // The times of its work, in ms since its start.
  struct Work {
    std::uint64_t ready = 0;
    std::uint64_t healthy = 0;
    std::uint64_t end = 0;
    std::uint32_t code = 0;
    bool saysReady = true;
    bool saysHealthy = true;
  };
  Work drawWork(Build build, bool onTrial);
  Work drawGoodTrial(Work work);
  std::uint32_t drawCode();
  void add(Act act, sim::Runtime& runtime, const Work& work);
  void addUpdate(sim::Runtime& runtime, const Work& work, bool withRequest);
  void addRestart(sim::Runtime& runtime, const Work& work);
  void addHold(sim::Runtime& runtime, const Work& work);
  void holdAtThePromotion(sim::Runtime& runtime, Work& work);
  std::uint64_t sometime(const Work& work) { return scene_.chance.below(work.end + 1); }

  Scene& scene_;
  Installation& installation_;
};

}  // namespace launcher_stub::sweeps
