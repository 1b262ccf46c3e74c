#include "state/restart_request.h"

#include "json/value.h"
#include "state/attempt_record.h"
#include "state/document.h"
#include "state/messages.h"
#include "state/names.h"

namespace launcher_stub {

bool readRestartRequest(std::string_view document, RestartRequest& request, std::string& error) {
  JsonValue value;
  if (!checkDocumentHeader(document, value, error)) return false;
  const JsonObject& members = *value.object();
  if (!readSlotReference(members, request.slot, request.nonce, error)) return false;
  if (!readOptionalString(members, "requestId", request.requestId, error)) return false;
  if (request.requestId && !isToken(*request.requestId)) {
    error = messages::invalidToken;
    return false;
  }
  return true;
}

}  // namespace launcher_stub
