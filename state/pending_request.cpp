#include "state/pending_request.h"

#include "json/value.h"
#include "state/document.h"
#include "state/messages.h"
#include "state/names.h"

namespace launcher_stub {

bool readPendingRequest(std::string_view document, PendingRequest& request, std::string& error) {
  JsonValue value;
  if (!checkDocumentHeader(document, value, error)) return false;
  const JsonObject& members = *value.object();
  if (!readString(members, "requestId", request.requestId, error)) return false;
  if (!isToken(request.requestId)) {
    error = messages::invalidToken;
    return false;
  }
  if (!readUnsigned(members, "expectedGeneration", request.expectedGeneration, error)) return false;
  if (!readString(members, "candidate", request.candidate, error)) return false;
  if (!isSlotName(request.candidate)) {
    error = messages::invalidSlot;
    return false;
  }
  return true;
}

}  // namespace launcher_stub
