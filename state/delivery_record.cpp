#include "state/delivery_record.h"

#include <cstddef>

#include "json/value.h"
#include "state/document.h"
#include "state/names.h"

namespace launcher_stub {
namespace {

constexpr std::size_t deliveryIdBytes = 64;

// A slot name of the greatest length has exactly this form.
bool isDeliveryId(std::string_view text) { return text.size() == deliveryIdBytes && isSlotName(text); }

}  // namespace

bool readDelivery(std::string_view document, DeliveryRecord& record, std::string& error) {
  JsonValue value;
  if (!checkDocumentHeader(document, value, error)) return false;  // refuses a document that is too large unparsed
  constexpr std::string_view key = "deliveryId";
  if (!readString(*value.object(), key, record.deliveryId, error)) return false;
  if (!isDeliveryId(record.deliveryId)) {
    error = invalidMember(key);
    return false;
  }
  return true;
}

}  // namespace launcher_stub
