// "bootstrap-v1.json": what the installer says about the installation.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "state/names.h"

namespace launcher_stub {

struct BootstrapRecord {
  std::string installId;                 // non-empty
  std::string seedSlot{seedSlotName};    // always "seed"
  std::optional<std::string> stateRoot;  // UTF-8; not checked here
};

// False: `error` says what is wrong first, and `record` is to be discarded.
bool readBootstrap(std::string_view document, BootstrapRecord& record, std::string& error);

}  // namespace launcher_stub
