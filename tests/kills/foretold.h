// What a launch will do to the disk, change by change, told from its rules by code that shares nothing with the
// launcher's. A launcher that is killed has to leave the disk as it is between two of these changes.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/kills/world.h"

namespace end_to_end::kills {

// What a runtime does when it is started.
enum class Act : std::uint8_t {
  stays,           // until it is told to finish; then it ends the run
  crashes,         // at once
  asksForUpdate,   // leaves a request for the candidate, asks for the restart that goes with it, and ends
  asksForRestart,  // asks for a plain restart, and ends
  provesHealthy,   // leaves its health mark and stays
};

// For each slot the acts of its first starts; at later starts, and in slots that are not named, it stays.
using Acts = std::map<std::string, std::vector<Act>>;

Act actAt(const Acts& acts, const std::string& slot, std::size_t start);  // `start` counts from 1

// The exit code of a runtime that was told to finish; each slot has one of its own.
int exitCodeOf(const std::string& slot);

enum class Change : std::uint8_t {
  nothing,  // the launch has begun
  pruning,
  pruned,
  previousSaved,
  stateWritten,
  requestRemoved,
  attemptCreated,
  recordWritten,
  runtimeStarted,
  requestLeft,      // by the runtime
  endRecorded,      // a state written because the runtime has ended and nothing else is to be started
  promotionCopied,  // the former state saved as the previous one, a minute after the health mark
  promoted,
};

const char* nameOf(Change change);

struct Step {
  Change change;
  World world;  // after it
};

struct Foretold {
  std::vector<Step> steps;
  std::optional<int> exitCode;  // none: its last runtime stays
};

// The starts of a launch, from 1 on, at which the system lost the runtime before it could record anything.
using LostStarts = std::set<std::size_t>;

// `told`: the runtimes are told to finish before the launch begins.
Foretold foretell(const World& world, const Acts& acts, bool told, const LostStarts& lost = {});

}  // namespace end_to_end::kills
