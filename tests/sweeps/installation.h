// What lies on the disk in a random life, and those who put it there besides the launcher: the installer, runtimes that
// write slots and requests, people who delete files, the support that repairs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/sweeps/scene.h"

namespace launcher_stub::sweeps {

class Installation {
 public:
  Installation(Scene& scene, std::function<sim::Runtime(const std::string&)> drawRuntime)
      : scene_(scene), drawRuntime_(std::move(drawRuntime)) {}

  void layOut();      // on a new machine with an empty disk
  void setScripts();  // on each new machine: what the slots do is not on the disk

  // --- By a runtime, or by hand; also while the launcher runs, so what is written has not settled ---
  std::string newSlotName();                        // an old slot that nothing names makes room
  void writeSlotFiles(const std::string& slot);     // all but the last one
  void completeSlot(const std::string& slot);       // mostly
  void leaveRequest(const std::string& candidate);  // mostly a good one
  void leaveAnyRequest();                           // in any condition, for any slot
  std::string anySlot();                            // one that has been written some time

  // --- Between launches ---
  void replaceSeed();
  void removeSeed();
  void deleteSlot();
  void spoilExecutable();
  void damageState(bool current, bool previous);
  void restoreBootstrap();
  void makeGood();  // what nobody would leave as it is: bootstrap, owner, a missing seed
  void repairHopelessState();

  Build buildOf(const std::string& slot) const;

 private:
  void setScript(const std::string& slot);
  void put(const std::wstring& path, std::string_view contents);
  void damage(std::wstring_view name);
  void writeFirstState();
  std::string document(const std::string& id, std::uint64_t generation, const std::string& candidate) const;

  Scene& scene_;
  std::function<sim::Runtime(const std::string&)> drawRuntime_;
  std::vector<std::string> slots_;  // names that have been written
  std::uint64_t lastRequest_ = 0;
};

}  // namespace launcher_stub::sweeps
