// Wine keeps no access-control lists, so there the launcher sets those of three directories anew at every start, which
// on Windows it does once in the life of a state root. Linked in, this takes the setting away and leaves the rest: the
// lists are still read and judged, and the notice about them still goes out.
//
// The launcher makes the call through the program's import pointer, which is defined here.

#include <windows.h>

#include <aclapi.h>

static DWORD WINAPI keepList(LPWSTR, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID, PSID, PACL, PACL) {
  return ERROR_SUCCESS;
}

extern "C" decltype(&::SetNamedSecurityInfoW) setNamedSecurityInfoImport asm("__imp_SetNamedSecurityInfoW");
decltype(&::SetNamedSecurityInfoW) setNamedSecurityInfoImport = &keepList;
