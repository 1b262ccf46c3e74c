#include "os/log.h"
#include "slots/messages.h"
#include "slots/slot_store.h"

namespace launcher_stub {

void reportForeignDelivery(const std::string& slot) {
  std::string line(messages::ignoringSlot);
  line += slot;
  line += messages::deliveryDiffers;
  os::logLine(line);
}

}  // namespace launcher_stub
