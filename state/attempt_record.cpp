#include "state/attempt_record.h"

#include <utility>

#include "json/writer.h"
#include "state/document.h"
#include "state/messages.h"
#include "state/names.h"

namespace launcher_stub {
namespace {

constexpr const char* slotKey = "slot";
constexpr const char* nonceKey = "nonce";

}  // namespace

bool readAttemptRecord(std::string_view document, AttemptRecord& record, std::string& error) {
  JsonValue value;
  if (!checkDocumentHeader(document, value, error)) return false;
  return readSlotReference(*value.object(), record.slot, record.nonce, error);
}

std::string writeAttemptRecord(const AttemptRecord& record) {
  JsonObject members = newDocument();
  members.try_emplace(slotKey, record.slot);
  members.try_emplace(nonceKey, record.nonce);
  members.try_emplace("startedAt", unsignedNumber(record.startedAt));
  return toJsonText(JsonValue(std::move(members)));
}

bool readSlotReference(const JsonObject& members, std::string& slot, std::string& nonce, std::string& error) {
  if (!readString(members, slotKey, slot, error)) return false;
  if (!isRunnableSlotName(slot)) {
    error = messages::invalidSlot;
    return false;
  }
  if (!readString(members, nonceKey, nonce, error)) return false;
  if (!isToken(nonce)) {
    error = messages::invalidToken;
    return false;
  }
  return true;
}

}  // namespace launcher_stub
