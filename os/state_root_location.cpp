#include "os/environment.h"
#include "os/path.h"
#include "os/state_root.h"
#include "os/text.h"

namespace launcher_stub::os {

std::wstring resolveStateRoot(const std::wstring& installDirectory, std::string_view stateRoot) {
  if (!stateRoot.empty()) return joinPath(installDirectory, toWide(stateRoot));  // an absolute one replaces the left
  const std::wstring localData = readEnvironmentVariable(L"LOCALAPPDATA");
  if (localData.empty()) return {};
  return joinPath(localData, L"Quorvex/tessellary/native");
}

}  // namespace launcher_stub::os
