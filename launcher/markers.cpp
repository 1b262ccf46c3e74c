#include "launcher/markers.h"

#include "os/durable_file.h"
#include "os/file_status.h"
#include "os/path.h"
#include "slots/file_names.h"
#include "state/attempt_record.h"

namespace launcher_stub {

bool markerSeen(const std::wstring& attemptDirectory, const LauncherModel& model, std::wstring_view marker) {
  std::string document;
  if (!os::readStateFile(os::joinPath(attemptDirectory, marker), document)) return false;

  AttemptRecord reference;
  std::string error;
  if (!readAttemptRecord(document, reference, error)) return false;
  return reference.slot == model.selected && reference.nonce == model.nextNonce;
}

FoundRestart readRestartFile(const std::wstring& attemptDirectory) {
  const std::wstring path = os::joinPath(attemptDirectory, files::restartRequest);
  FoundRestart found;
  found.present = !os::pathIsMissing(path);
  if (!found.present) return found;

  std::string document;
  std::string error;
  if (!os::readStateFile(path, document) || !readRestartRequest(document, found.request.emplace(), error)) {
    found.request.reset();
  }
  return found;
}

}  // namespace launcher_stub
