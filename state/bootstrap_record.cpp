#include "state/bootstrap_record.h"

#include "json/value.h"
#include "state/document.h"
#include "state/messages.h"
#include "state/names.h"

namespace launcher_stub {

bool readBootstrap(std::string_view document, BootstrapRecord& record, std::string& error) {
  JsonValue value;
  if (!checkDocumentHeader(document, value, error)) return false;
  const JsonObject& members = *value.object();
  if (!readString(members, "installId", record.installId, error)) return false;
  if (!readString(members, "seedSlot", record.seedSlot, error)) return false;
  if (!readOptionalString(members, "stateRoot", record.stateRoot, error)) return false;
  if (record.installId.empty() || record.seedSlot != seedSlotName) {
    error = messages::invalidBootstrap;
    return false;
  }
  return true;
}

}  // namespace launcher_stub
