#include "launcher/pending_file.h"

#include "os/durable_file.h"
#include "os/path.h"
#include "slots/file_names.h"
#include "state/messages.h"

namespace launcher_stub {

FoundPending readPendingFile(const std::wstring& stateRoot) {
  FoundPending found;
  std::string document;
  if (!os::readStateFile(os::joinPath(stateRoot, files::pendingRequest), document)) return found;

  std::string error;
  if (!readPendingRequest(document, found.request.emplace(), error)) {
    found.request.reset();
    found.unsupportedMajor = error == messages::unsupportedMajor;
  }
  return found;
}

}  // namespace launcher_stub
