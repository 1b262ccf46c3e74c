#include "slots/install_layout.h"

#include "os/path.h"
#include "slots/file_names.h"

namespace launcher_stub {

InstallLayout buildInstallLayout(const std::wstring& installDirectory) {
  return {installDirectory, os::joinPath(installDirectory, files::bootstrap),
          os::joinPath(os::joinPath(installDirectory, files::seed), files::entry)};
}

}  // namespace launcher_stub
