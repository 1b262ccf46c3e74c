// Where things lie in the install directory.
#pragma once

#include <string>

namespace launcher_stub {

struct InstallLayout {
  std::wstring installDir;
  std::wstring bootstrapPath;  // "bootstrap-v1.json" in it
  std::wstring seedEntryPath;  // "seed\entry-v1.exe" in it: the seed is not in the slot store
};

InstallLayout buildInstallLayout(const std::wstring& installDirectory);

}  // namespace launcher_stub
