#include "launcher/markers.h"

#include "os/durable_file.h"
#include "os/file_status.h"
#include "os/path.h"
#include "slots/file_names.h"
#include "state/attempt_record.h"

namespace launcher_stub {

bool markerSeen(const LaunchContext& context, std::wstring_view marker) {
  std::string document;
  if (!os::readStateFile(os::joinPath(context.attemptDirectory, marker), document)) return false;

  AttemptRecord reference;
  std::string error;
  if (!readAttemptRecord(document, reference, error)) return false;
  return reference.slot == context.model.selected && reference.nonce == context.model.nextNonce;
}

FoundRestart readRestartFile(const LaunchContext& context) {
  const std::wstring path = os::joinPath(context.attemptDirectory, files::restartRequest);
  FoundRestart found;
  found.present = !os::pathIsMissing(path);
  if (!found.present) return found;

  std::string document;
  RestartRequest request;
  std::string error;
  if (os::readStateFile(path, document) && readRestartRequest(document, request, error)) found.request = request;
  return found;
}

}  // namespace launcher_stub
