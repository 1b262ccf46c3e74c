// What comes over a random life from outside: crashes, failures, second launchers, scanners, people.
#pragma once

#include "tests/sweeps/installation.h"
#include "tests/sweeps/scene.h"

namespace launcher_stub::sweeps {

class Blows {
 public:
  Blows(Scene& scene, Installation& installation) : scene_(scene), installation_(installation) {}

  // Does what is to happen before the next launch, and prepares what is to happen in it.
  void prepare(Blow blow);
  // Nothing that was prepared happens any more.
  void calmDown();
  // The power goes now: throws PowerGone. What is left lies in the scene.
  [[noreturn]] void cutPower();

 private:
  void prepareCrash(Blow blow);
  void prepareFailure(Blow blow);
  void prepareHold(Blow blow);
  void disturbFiles(Blow blow);
  void disturbSurroundings(Blow blow);
  void failOneCall(std::uint64_t number);
  void failTheStart();
  void runSecond();
  void atChange(std::uint64_t number, std::function<void()> doing);
  std::uint64_t someCall();

  Scene& scene_;
  Installation& installation_;
  int newerBootstrapFor_ = 0;  // launches
};

}  // namespace launcher_stub::sweeps
