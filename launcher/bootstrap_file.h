// "bootstrap-v1.json" in the install directory.
#pragma once

#include <optional>
#include <string>

#include "slots/install_layout.h"

namespace launcher_stub {

struct Bootstrap {
  bool understood = false;  // false: written for a newer major version; only the state root is taken from it
  std::string stateRoot;    // empty for none
};

// None: `error` is the whole text that the user is shown.
std::optional<Bootstrap> loadBootstrap(const InstallLayout& layout, std::string& error);

}  // namespace launcher_stub
