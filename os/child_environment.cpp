#include "os/child_environment.h"

#include <windows.h>

#include <memory>

#include "os/text.h"

namespace launcher_stub::os {
namespace {

struct StringsFreed {
  void operator()(wchar_t* block) const noexcept { FreeEnvironmentStringsW(block); }
};

// The system's own order of names, in which it also looks them up.
bool nameComesBefore(std::wstring_view a, std::wstring_view b) {
  return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(), static_cast<int>(b.size()), TRUE) ==
         CSTR_LESS_THAN;
}

}  // namespace

std::wstring buildChildEnvironment(const std::wstring& installDirectory, const std::wstring& stateRoot,
                                   const std::wstring& attemptDirectory, std::uint64_t leaseHandleValue) {
  const std::unique_ptr<wchar_t, StringsFreed> own(GetEnvironmentStringsW());
  if (own == nullptr) return {};
  const std::vector<std::wstring> added = {
      L"QUORVEX_BOOT_STATE_ROOT=" + stateRoot,
      L"QUORVEX_BOOT_ATTEMPT_DIR=" + attemptDirectory,
      L"QUORVEX_BOOT_LEASE=" + toWideDigits(leaseHandleValue),
      L"QUORVEX_BOOT_INSTALL_DIR=" + installDirectory,
  };
  return composeEnvironmentBlock(splitEnvironmentBlock(own.get()), added, nameComesBefore);
}

}  // namespace launcher_stub::os
