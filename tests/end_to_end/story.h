// What the stories have in common. They tell the launcher's promises in real time, so each says with its figures what
// was measured. Their suites are named "story...".
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/end_to_end/harness.h"

namespace end_to_end {

// The launcher's limits, and how much later than the exact moment something may be seen: a look every 250 ms, a test
// that looks too, and a machine with more to do than it has cores.
constexpr std::uint64_t silenceLimitMs = 120'000;
constexpr std::uint64_t soakMs = 60'000;
constexpr std::uint64_t writeFailureLimitMs = 30'000;
constexpr std::uint64_t replaceLimitMs = 2'000;
constexpr std::uint64_t slackMs = 5'000;

// Prints "figures: ..." and records it in the test's report.
void figures(const std::string& text);

// Fails the test when `measured` lies outside; both limits are allowed.
void expectBetween(const char* what, std::uint64_t measured, std::uint64_t least, std::uint64_t most);

// The moment at which `happened` was first seen true, asked ten times a second; none: not within `limit` milliseconds.
std::optional<std::uint64_t> momentOf(const std::function<bool()>& happened, std::uint64_t limit);
std::optional<std::uint64_t> momentOfState(const Installation& installation, const std::string& json,
                                           std::uint64_t limit);

// When the runtime began to carry out this line of its script, the first time.
std::uint64_t timeOf(const RuntimeLog& log, const std::string& command);

// When the launcher decided to make this attempt: right before the runtime's start, on the same clock.
std::uint64_t startedAt(const Installation& installation, const std::string& nonce);

// The lease can be taken again, so the next launcher will not take itself for a second one.
bool leaseIsFree(const Installation& installation);

// Presses the button of the launcher's only box, which has to show this text.
void dismissBox(Launcher& launcher, const std::string& text);

std::string joined(const std::vector<std::string>& lines);

// A file that this process reads: others may read and write it too, but not replace or delete it. A virus scanner does
// that to a file.
class PinnedFile {
 public:
  explicit PinnedFile(const std::wstring& path);
  void letGo() { handle_.reset(); }

 private:
  Handle handle_;
};

// Counts the files that come into being in a directory, however short they exist.
class CreationCount {
 public:
  explicit CreationCount(const std::wstring& directory);
  ~CreationCount();
  CreationCount(const CreationCount&) = delete;
  CreationCount& operator=(const CreationCount&) = delete;

  // New files whose names begin so, since the start. Replacing a file makes one "NAME.tmp-..." for each try.
  std::size_t beginningWith(const std::wstring& start);

 private:
  struct Request;

  void ask();
  void collect();

  Handle directory_;
  std::unique_ptr<Request> request_;  // the system writes into it
  std::vector<std::wstring> names_;
};

}  // namespace end_to_end
