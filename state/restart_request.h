// "restart-v1.json": the runtime asks to be started again when it has ended.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace launcher_stub {

struct RestartRequest {
  std::string slot;                      // runnable slot name
  std::string nonce;                     // token
  std::optional<std::string> requestId;  // token
};

// False: `error` says what is wrong first, and `request` is to be discarded.
bool readRestartRequest(std::string_view document, RestartRequest& request, std::string& error);

}  // namespace launcher_stub
