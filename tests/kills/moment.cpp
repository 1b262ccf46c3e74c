#include "tests/kills/moment.h"

#include <windows.h>

#include <algorithm>

namespace end_to_end::kills {
namespace {

constexpr std::uint32_t missedAfterMs = 5'000;  // beyond the soak; a change that was missed will not come any more

constexpr std::uint64_t untilItsEndUs = 350'000;  // of a launch whose runtime has ended: one look of the launcher

std::uint64_t microseconds() {
  LARGE_INTEGER frequency;
  LARGE_INTEGER now;
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&now);
  return static_cast<std::uint64_t>(now.QuadPart) * 1'000'000 / static_cast<std::uint64_t>(frequency.QuadPart);
}

std::uint64_t signatureOf(const std::wstring& path) {
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return 0;
  const std::uint64_t time =
      std::uint64_t{data.ftLastWriteTime.dwHighDateTime} << 32 | data.ftLastWriteTime.dwLowDateTime;
  return time * 1'000 + data.nFileSizeLow;
}

// To the microsecond, with the processor to itself for the last part only.
bool passes(std::uint64_t end, const Process& launcher) {
  while (microseconds() < end) {
    const std::uint64_t left = end - std::min(end, microseconds());
    if (left > 2'000 && launcher.endsWithin(static_cast<std::uint32_t>(left / 1'000 - 1))) return false;
  }
  return true;
}

}  // namespace

Moment drawMoment(launcher_stub::sweeps::Chance& chance, const Foretold& foretold, std::uint64_t lengthMs) {
  const std::size_t last = foretold.steps.size() - 1;
  if (foretold.exitCode && chance.oneIn(2)) return {last, chance.below(untilItsEndUs)};
  if (chance.oneIn(3)) return {0, chance.below(lengthMs * 1'000)};
  static constexpr std::uint64_t spreads[] = {1, 2'000, 8'000, 40'000, 150'000};
  const std::size_t step = chance.below(foretold.steps.size());
  return {step, chance.below(spreads[chance.below(std::size(spreads))])};
}

std::string describe(const Moment& moment, const Foretold& foretold) {
  return std::to_string(moment.microseconds) + " us after: " + nameOf(foretold.steps[moment.step].change) + " (step " +
         std::to_string(moment.step) + " of " + std::to_string(foretold.steps.size() - 1) + ")";
}

ChangeSensor::ChangeSensor(const Installation& installation) : watched_(subjects) {
  watched_[state].paths = {installation.inRoot(L"boot-v1.json")};
  watched_[previousState].paths = {installation.inRoot(L"boot-v1.previous.json")};
  watched_[request].paths = {installation.inRoot(L"pending-v1.json")};
  watched_[attempts].paths = {installation.inRoot(L"attempts")};
  for (const std::string& slot : {seedSlot, activeSlot, candidateSlot}) {
    watched_[starts].paths.push_back(installation.slotDirectory(slot) + L"\\starts.txt");
  }
  look();
  for (Watched& one : watched_) one.changes = 0;
}

void ChangeSensor::look() {
  for (Watched& one : watched_) {
    one.signatures.resize(one.paths.size());
    for (std::size_t i = 0; i < one.paths.size(); ++i) {
      const std::uint64_t found = signatureOf(one.paths[i]);
      if (found != std::exchange(one.signatures[i], found)) ++one.changes;
    }
  }
}

ChangeSensor::Subject ChangeSensor::subjectOf(Change change) {
  switch (change) {
    case Change::nothing:
    case Change::pruning:
    case Change::pruned:
    case Change::attemptCreated:
    case Change::recordWritten:  // in a directory whose name nobody knows; it follows at once
      return attempts;
    case Change::previousSaved:
    case Change::promotionCopied:
      return previousState;
    case Change::stateWritten:
    case Change::endRecorded:
    case Change::promoted:
      return state;
    case Change::requestRemoved:
    case Change::requestLeft:
      return request;
    case Change::runtimeStarted:
      return starts;
  }
  return starts;
}

bool ChangeSensor::hasSeen(const Foretold& foretold, std::size_t step) const {
  const Subject subject = subjectOf(foretold.steps[step].change);
  std::size_t needed = 0;
  for (std::size_t i = 1; i <= step; ++i) {
    const Change change = foretold.steps[i].change;
    const bool counts = change != Change::recordWritten && change != Change::pruned;
    if (counts && subjectOf(change) == subject) ++needed;
  }
  return watched_[subject].changes >= needed;
}

bool await(const Moment& moment, const Foretold& foretold, ChangeSensor& sensor, const Process& launcher) {
  const bool soaks = moment.step > 0 && foretold.steps[moment.step].change >= Change::promotionCopied;
  const std::uint64_t limit = milliseconds() + missedAfterMs + (soaks ? 75'000 : 0);
  while (moment.step > 0 && !sensor.hasSeen(foretold, moment.step) && milliseconds() < limit) {
    if (launcher.endsWithin(1)) return false;
    sensor.look();
  }
  return passes(microseconds() + moment.microseconds, launcher);
}

}  // namespace end_to_end::kills
