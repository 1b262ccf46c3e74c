// The answers that a launcher gets from a volume of another kind than the one it stands on. PLAYED_VOLUME in the
// environment says which: "keeps lists" has the private list on every directory, "keeps no lists" says so of itself,
// "forgets lists" has none on what was created with one. Any other is the volume as it is.
//
// The launcher makes these calls through the program's import pointers, which are defined here.

#include <windows.h>

#include <aclapi.h>

#include <algorithm>
#include <string>

#include "os/environment.h"
#include "os/private_list.h"

namespace {

using namespace launcher_stub;

bool isPlayed(const wchar_t* kind) { return os::readEnvironmentVariable(L"PLAYED_VOLUME") == kind; }

template <typename Function>
Function* realCall(const wchar_t* library, const char* name) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(LoadLibraryW(library), name)));
}

BOOL WINAPI volumeInformation(LPCWSTR root, LPWSTR name, DWORD nameSize, LPDWORD serial, LPDWORD length, LPDWORD flags,
                              LPWSTR system, DWORD systemSize) {
  const auto real = realCall<decltype(::GetVolumeInformationW)>(L"kernel32", "GetVolumeInformationW");
  const BOOL told = real(root, name, nameSize, serial, length, flags, system, systemSize);
  if (isPlayed(L"keeps no lists")) *flags &= ~DWORD{FILE_PERSISTENT_ACLS};
  return told;
}

DWORD WINAPI namedSecurity(LPCWSTR path, SE_OBJECT_TYPE type, SECURITY_INFORMATION parts, PSID* owner, PSID* group,
                           PACL* list, PACL* audit, PSECURITY_DESCRIPTOR* descriptor) {
  const auto real = realCall<decltype(::GetNamedSecurityInfoW)>(L"advapi32", "GetNamedSecurityInfoW");
  if (!isPlayed(L"keeps lists")) return real(path, type, parts, owner, group, list, audit, descriptor);
  const os::Sid user = os::currentUserSid();
  const os::SystemBytes kept = os::buildPrivateDescriptor(user, os::buildPrivateList(user, os::localSystemSid()));
  *descriptor = LocalAlloc(LMEM_FIXED, kept.size());
  std::copy(kept.begin(), kept.end(), static_cast<std::uint8_t*>(*descriptor));
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  GetSecurityDescriptorOwner(*descriptor, owner, &defaulted);
  GetSecurityDescriptorDacl(*descriptor, &present, list, &defaulted);
  return ERROR_SUCCESS;
}

DWORD WINAPI securityOfHandle(HANDLE handle, SE_OBJECT_TYPE type, SECURITY_INFORMATION parts, PSID* owner, PSID* group,
                              PACL* list, PACL* audit, PSECURITY_DESCRIPTOR* descriptor) {
  const auto real = realCall<decltype(::GetSecurityInfo)>(L"advapi32", "GetSecurityInfo");
  const DWORD result = real(handle, type, parts, owner, group, list, audit, descriptor);
  if (isPlayed(L"forgets lists")) *list = nullptr;
  return result;
}

}  // namespace

#define IMPORT_POINTER(name, body)                               \
  extern "C" decltype(&::name) name##Import asm("__imp_" #name); \
  decltype(&::name) name##Import = &body

IMPORT_POINTER(GetVolumeInformationW, volumeInformation);
IMPORT_POINTER(GetNamedSecurityInfoW, namedSecurity);
IMPORT_POINTER(GetSecurityInfo, securityOfHandle);
