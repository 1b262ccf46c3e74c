// "pending-v1.json": an update that the runtime wants to be tried.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace launcher_stub {

struct PendingRequest {
  std::string requestId;                 // token
  std::uint64_t expectedGeneration = 0;  // the generation that the requester saw
  std::string candidate;                 // slot name; never "seed"
};

// False: `error` says what is wrong first, and `request` is to be discarded.
bool readPendingRequest(std::string_view document, PendingRequest& request, std::string& error);

}  // namespace launcher_stub
