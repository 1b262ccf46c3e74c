#include "tests/kills/world.h"

#include <windows.h>

#include <algorithm>

namespace end_to_end::kills {
namespace {

std::size_t countTemporaryFiles(const std::wstring& directory) {
  const std::vector<std::wstring> names = listDirectory(directory);
  return static_cast<std::size_t>(std::count_if(
      names.begin(), names.end(), [](const std::wstring& name) { return name.find(L".tmp-") != std::wstring::npos; }));
}

std::string listOf(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : " ") + name;
  return text.empty() ? "none" : text;
}

std::string orNone(const std::string& text) { return text.empty() ? "none" : text; }

std::size_t withoutRecord(const Found& found) {
  return static_cast<std::size_t>(std::count_if(found.attempts.begin(), found.attempts.end(),
                                                [](const Attempt& attempt) { return attempt.record.empty(); }));
}

bool attemptsFit(const World& world, const Found& found) {
  const auto missing = static_cast<std::size_t>(std::count(world.attempts.begin(), world.attempts.end(), false));
  const bool untouched = found.attempts.size() == world.attempts.size() && withoutRecord(found) == missing &&
                         found.newAttempts == world.newAttempts;
  if (!world.pruning) return untouched;
  return !untouched && !found.attempts.empty() && found.attempts.size() <= world.attempts.size() &&
         found.newAttempts <= world.newAttempts;
}

}  // namespace

std::vector<std::string> Found::startedSlots() const {
  std::vector<std::string> slots;
  for (const RuntimeStart& start : starts) slots.push_back(start.slot);
  return slots;
}

std::uint64_t lastWriteTime(const std::wstring& path) {
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return 0;
  return std::uint64_t{data.ftLastWriteTime.dwHighDateTime} << 32 | data.ftLastWriteTime.dwLowDateTime;
}

Found look(const Installation& installation) {
  Found found;
  found.boot = installation.state();
  found.previous = installation.previousState();
  found.request = readFile(installation.inRoot(L"pending-v1.json"));
  found.temporaryFiles = countTemporaryFiles(installation.stateRoot());
  for (const std::wstring& name : installation.attempts()) {
    const std::wstring directory = installation.inRoot(L"attempts\\" + name);
    found.attempts.push_back({toUtf8(name), readFile(directory + L"\\boot-v1.json"), lastWriteTime(directory)});
    found.temporaryFiles += countTemporaryFiles(directory);
  }
  std::stable_sort(found.attempts.begin(), found.attempts.end(),
                   [](const Attempt& a, const Attempt& b) { return a.changedAt < b.changedAt; });
  found.starts = installation.starts();
  return found;
}

Found lookAgain(const Installation& installation, const Found& before) {
  Found found = look(installation);
  const auto isNew = [&](const Attempt& attempt) {
    return std::none_of(before.attempts.begin(), before.attempts.end(),
                        [&](const Attempt& earlier) { return earlier.name == attempt.name; });
  };
  found.newAttempts = static_cast<std::size_t>(std::count_if(found.attempts.begin(), found.attempts.end(), isNew));
  return found;
}

bool fits(const World& world, const Found& found) {
  return found.boot == world.bootText() && found.previous == world.previousText() &&
         found.request == world.requestText() && attemptsFit(world, found) && found.startedSlots() == world.starts;
}

std::string describe(const World& world) {
  const auto records = std::count(world.attempts.begin(), world.attempts.end(), true);
  return "state " + orNone(world.bootText()) + ", previous " + orNone(world.previousText()) + ", request " +
         orNone(world.requestText()) + ", " + (world.pruning ? "at most " : "") +
         std::to_string(world.attempts.size()) + " attempts, " + std::to_string(world.newAttempts) + " new, with " +
         std::to_string(records) + " records, starts " + listOf(world.starts);
}

std::string describe(const Found& found) {
  return "state " + orNone(found.boot) + ", previous " + orNone(found.previous) + ", request " + orNone(found.request) +
         ", " + std::to_string(found.attempts.size()) + " attempts, " + std::to_string(found.newAttempts) +
         " new, with " + std::to_string(found.attempts.size() - withoutRecord(found)) + " records, starts " +
         listOf(found.startedSlots());
}

}  // namespace end_to_end::kills
