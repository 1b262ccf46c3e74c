// What lies on the disk of an installation between two of the launcher's steps: as it is expected, and as it was found.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/end_to_end/harness.h"

namespace end_to_end::kills {

// The world of these tests: the seed, the trusted slot, the slot under trial, and the one trusted before.
inline const std::string seedSlot = "seed";
inline const std::string activeSlot = "aaaa";
inline const std::string candidateSlot = "bbbb";
inline const std::string previousSlot = "cccc";
inline const std::string requestId = "request-1";

struct World {
  std::optional<StateText> boot;            // none: "boot-v1.json" is missing, or damaged
  std::string damagedBoot = {};             // its bytes then; empty: missing
  std::optional<StateText> previous;        // none: "boot-v1.previous.json" is missing
  std::optional<std::uint64_t> requestFor;  // a pending request for the candidate that names this generation
  std::vector<bool> attempts = {};          // the attempt directories, oldest first: does it have its record?
  std::size_t newAttempts = 0;              // so many of them, the youngest, are of the launch that is foretold
  bool pruning = false;                     // some of them are gone, wholly or partly
  std::vector<std::string> starts = {};     // slots, as their runtimes have recorded their starts

  std::string bootText() const { return boot ? boot->json() : damagedBoot; }
  std::string previousText() const { return previous ? previous->json() : std::string(); }
  std::string requestText() const { return requestFor ? pendingText(candidateSlot, requestId, *requestFor) : ""; }
};

struct Attempt {
  std::string name;
  std::string record;           // empty: there is none
  std::uint64_t changedAt = 0;  // the directory's last-write time, in units of 100 ns
};

struct Found {
  std::string boot;  // of each file the whole text; empty: missing
  std::string previous;
  std::string request;
  std::vector<Attempt> attempts;  // by their times
  std::size_t newAttempts = 0;    // of them, since an earlier look
  std::vector<RuntimeStart> starts;
  std::size_t temporaryFiles = 0;  // beside the state files and in the attempt directories

  std::vector<std::string> startedSlots() const;
};

// A file's or directory's; 0 when it is missing.
std::uint64_t lastWriteTime(const std::wstring& path);

Found look(const Installation& installation);
Found lookAgain(const Installation& installation, const Found& before);

bool fits(const World& world, const Found& found);

// For messages: one line each.
std::string describe(const World& world);
std::string describe(const Found& found);

}  // namespace end_to_end::kills
