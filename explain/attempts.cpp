#include "explain/attempts.h"

#include <algorithm>

#include "explain/documents.h"
#include "launcher/markers.h"
#include "os/directory.h"
#include "os/durable_file.h"
#include "os/path.h"
#include "slots/file_names.h"
#include "state/attempt_record.h"
#include "state/decision.h"

namespace launcher_stub::explain {
namespace {

// The launcher's model while this attempt ran, as far as the markers and the restart request ask it.
LauncherModel modelOf(const AttemptRecord& record, const std::optional<BootState>& state) {
  LauncherModel model;
  model.selected = record.slot;
  model.nextNonce = record.nonce;
  if (state) model.state = *state;
  return model;
}

MarkerFinding lookAtMarker(const std::wstring& directory, const LauncherModel& model, std::wstring_view marker) {
  if (markerSeen(directory, model, marker)) return {MarkerStanding::counts, {}};
  const DocumentFinding document = lookAtDocument({}, os::joinPath(directory, marker), attemptRecordIsValid);
  switch (document.condition) {
    case Condition::missing:
      return {MarkerStanding::absent, {}};
    case Condition::valid:
      return {MarkerStanding::otherAttempt, {}};
    case Condition::invalid:
    case Condition::unreadable:
      break;
  }
  return {MarkerStanding::unreadable, document.error};
}

RestartFinding lookAtRestart(const std::wstring& directory, const LauncherModel& model,
                             const std::optional<std::string>& requestId) {
  const FoundRestart found = readRestartFile(directory);
  if (!found.present) return {RestartStanding::absent, {}};
  if (!found.request) {
    return {RestartStanding::unreadable,
            lookAtDocument({}, os::joinPath(directory, files::restartRequest), restartRequestIsValid).error};
  }
  ExitInput input;
  input.restartPresent = true;
  input.restart = found.request;
  input.extraRequestId = requestId;
  return {asksForRelaunch(model, input) ? RestartStanding::asked : RestartStanding::notOfThis, {}};
}

AttemptFinding lookAtAttempt(const std::wstring& attempts, const std::wstring& name,
                             const std::optional<BootState>& state, const std::optional<std::string>& requestId) {
  const std::wstring directory = os::joinPath(attempts, name);
  const std::wstring path = os::joinPath(directory, files::bootState);
  AttemptFinding finding;
  finding.name = name;
  finding.record = lookAtDocument({}, path, attemptRecordIsValid);

  std::string document;
  AttemptRecord record;
  std::string error;
  if (!os::readStateFile(path, document) || !readAttemptRecord(document, record, error)) return finding;
  const LauncherModel model = modelOf(record, state);
  finding.slot = record.slot;
  finding.ready = lookAtMarker(directory, model, files::ready);
  finding.healthy = lookAtMarker(directory, model, files::healthy);
  finding.restart = lookAtRestart(directory, model, requestId);
  return finding;
}

}  // namespace

std::vector<AttemptFinding> lookAtAttempts(const std::wstring& stateRoot, const std::optional<BootState>& state,
                                           const std::optional<std::string>& requestId) {
  const std::wstring attempts = os::joinPath(stateRoot, files::attempts);
  std::vector<os::DirectoryEntry> entries = os::listDirectory(attempts);
  std::erase_if(entries, [](const os::DirectoryEntry& entry) { return !entry.isDirectory; });
  std::ranges::stable_sort(entries, std::ranges::greater(), &os::DirectoryEntry::lastWriteTime);
  std::vector<AttemptFinding> findings;
  findings.reserve(entries.size());
  for (const os::DirectoryEntry& entry : entries) {
    findings.push_back(lookAtAttempt(attempts, entry.name, state, requestId));
  }
  return findings;
}

}  // namespace launcher_stub::explain
