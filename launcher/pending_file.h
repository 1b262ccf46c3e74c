// "pending-v1.json" in the state root.
#pragma once

#include <optional>
#include <string>

#include "state/pending_request.h"

namespace launcher_stub {

struct FoundPending {
  bool unsupportedMajor = false;          // written for a newer launcher: to be left alone
  std::optional<PendingRequest> request;  // none where the file is missing or invalid
};

FoundPending readPendingFile(const std::wstring& stateRoot);

}  // namespace launcher_stub
