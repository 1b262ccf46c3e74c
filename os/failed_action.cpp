#include "os/log.h"
#include "os/messages.h"

namespace launcher_stub::os {

std::string failedAction(std::string_view action, std::uint32_t code) {
  std::string text(action);
  text += messages::win32Error;
  text += std::to_string(code);
  return text;
}

}  // namespace launcher_stub::os
