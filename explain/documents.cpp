#include "explain/documents.h"

#include "os/durable_file.h"
#include "os/file_status.h"
#include "os/path.h"
#include "slots/file_names.h"
#include "slots/slot_store.h"
#include "state/attempt_record.h"
#include "state/boot_state.h"
#include "state/bootstrap_record.h"
#include "state/delivery_record.h"
#include "state/pending_request.h"
#include "state/restart_request.h"

namespace launcher_stub::explain {
namespace {

bool bootstrapIsValid(std::string_view document, std::string& error) {
  BootstrapRecord record;
  return readBootstrap(document, record, error);
}

bool bootStateIsValid(std::string_view document, std::string& error) {
  BootState state;
  return readBootState(document, state, error);
}

bool pendingRequestIsValid(std::string_view document, std::string& error) {
  PendingRequest request;
  return readPendingRequest(document, request, error);
}

bool deliveryIsValid(std::string_view document, std::string& error) {
  DeliveryRecord record;
  return readDelivery(document, record, error);
}

// File names are plain ASCII.
std::string narrow(std::wstring_view name) {
  std::string text;
  for (const wchar_t character : name) text += static_cast<char>(character);
  return text;
}

}  // namespace

DocumentFinding lookAtDocument(const std::string& name, const std::wstring& path, Reader reader) {
  DocumentFinding found{name, path, Condition::missing, {}};
  std::string document;
  if (os::readStateFile(path, document)) {
    found.condition = reader(document, found.error) ? Condition::valid : Condition::invalid;
  } else if (!os::pathIsMissing(path)) {
    found.condition = Condition::unreadable;
  }
  return found;
}

std::vector<DocumentFinding> lookAtDocuments(const InstallLayout& layout, const std::wstring& stateRoot) {
  const auto inRoot = [&stateRoot](std::wstring_view name, Reader reader) {
    return lookAtDocument(narrow(name), os::joinPath(stateRoot, name), reader);
  };
  return {lookAtDocument(narrow(files::bootstrap), layout.bootstrapPath, bootstrapIsValid),
          inRoot(files::bootState, bootStateIsValid), inRoot(files::previousBootState, bootStateIsValid),
          inRoot(files::pendingRequest, pendingRequestIsValid),
          lookAtDocument("seed " + narrow(files::delivery),
                         os::joinPath(os::parentPath(layout.seedEntryPath), files::delivery), deliveryIsValid)};
}

DocumentFinding lookAtDelivery(const std::wstring& stateRoot, const std::string& slot) {
  return lookAtDocument(slot + " " + narrow(files::delivery),
                        os::joinPath(slotDirectory(stateRoot, slot), files::delivery), deliveryIsValid);
}

bool attemptRecordIsValid(std::string_view document, std::string& error) {
  AttemptRecord record;
  return readAttemptRecord(document, record, error);
}

bool restartRequestIsValid(std::string_view document, std::string& error) {
  RestartRequest request;
  return readRestartRequest(document, request, error);
}

}  // namespace launcher_stub::explain
