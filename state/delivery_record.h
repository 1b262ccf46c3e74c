// "delivery-v1.json": which delivery a slot belongs to.
#pragma once

#include <string>
#include <string_view>

namespace launcher_stub {

struct DeliveryRecord {
  std::string deliveryId;  // exactly 64 lowercase hexadecimal digits
};

// False: `error` says what is wrong first, and `record` is to be discarded.
bool readDelivery(std::string_view document, DeliveryRecord& record, std::string& error);

}  // namespace launcher_stub
