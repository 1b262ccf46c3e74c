// The calls about accounts, access-control lists and security descriptors.
#include <aclapi.h>

#include <algorithm>
#include <array>

#include "os/private_list.h"
#include "tests/call_faults/replacement.h"

#define DESCRIBES(function) static constexpr std::string_view name = #function

namespace call_faults {
namespace {

struct OpenProcessTokenCall : FailsWithFalse {
  DESCRIBES(OpenProcessToken);
  static std::vector<Refusal> refusals() { return codes({5, 1450}); }
  static void done(bool, bool, BOOL result, HANDLE, DWORD, PHANDLE token) {
    if (result) watch().acquired(Resource::handle, *token, name);
  }
};
struct GetTokenInformationCall : FailsWithFalse {
  DESCRIBES(GetTokenInformation);
  static std::vector<Refusal> refusals() { return codes({5, 8}); }
};
struct AllocateAndInitializeSidCall : FailsWithFalse {
  DESCRIBES(AllocateAndInitializeSid);
  static std::vector<Refusal> refusals() { return codes({8}); }
  static void done(bool, bool, BOOL result, PSID_IDENTIFIER_AUTHORITY, BYTE, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD,
                   DWORD, DWORD, PSID* sid) {
    if (result) watch().acquired(Resource::identifier, *sid, name);
  }
};
struct FreeSidCall : Call {
  DESCRIBES(FreeSid);
  static std::vector<Refusal> refusals() { return doneAndRefused(87); }
  static PVOID failed(const Refusal&, PSID sid) { return sid; }
  static void done(bool byLauncher, bool, PVOID, PSID sid) {
    watch().released(Resource::identifier, sid, name, byLauncher);
  }
};
struct CreateWellKnownSidCall : FailsWithFalse {
  DESCRIBES(CreateWellKnownSid);
  static std::vector<Refusal> refusals() { return codes({8, 87}); }
};
struct CheckTokenMembershipCall : FailsWithFalse {
  DESCRIBES(CheckTokenMembership);
  static std::vector<Refusal> refusals() { return codes({5, 8}); }
  static BOOL insteadOf(bool, HANDLE, PSID, PBOOL isMember) {
    *isMember = watch().circumstances().userIsAdministrator;
    return TRUE;
  }
};
struct InitializeAclCall : FailsWithFalse {
  DESCRIBES(InitializeAcl);
  static std::vector<Refusal> refusals() { return codes({87}); }
};
struct AddAccessAllowedAceExCall : FailsWithFalse {
  DESCRIBES(AddAccessAllowedAceEx);
  static std::vector<Refusal> refusals() { return codes({1344, 1337}); }
};
struct GetAceCall : FailsWithFalse {
  DESCRIBES(GetAce);
  static std::vector<Refusal> refusals() { return codes({87}); }
};
struct InitializeSecurityDescriptorCall : FailsWithFalse {
  DESCRIBES(InitializeSecurityDescriptor);
  static std::vector<Refusal> refusals() { return codes({87}); }
};
struct SetSecurityDescriptorOwnerCall : FailsWithFalse {
  DESCRIBES(SetSecurityDescriptorOwner);
  static std::vector<Refusal> refusals() { return codes({1337}); }
};
struct SetSecurityDescriptorDaclCall : FailsWithFalse {
  DESCRIBES(SetSecurityDescriptorDacl);
  static std::vector<Refusal> refusals() { return codes({1336}); }
};
struct SetSecurityDescriptorControlCall : FailsWithFalse {
  DESCRIBES(SetSecurityDescriptorControl);
  static std::vector<Refusal> refusals() { return codes({87}); }
};
struct GetSecurityDescriptorControlCall : FailsWithFalse {
  DESCRIBES(GetSecurityDescriptorControl);
  static std::vector<Refusal> refusals() { return codes({1338}); }
};
struct MakeSelfRelativeSDCall : FailsWithFalse {
  DESCRIBES(MakeSelfRelativeSD);
  static std::vector<Refusal> refusals() { return codes({8, 1338}); }
};

PSID administrators() {
  static std::array<BYTE, SECURITY_MAX_SID_SIZE> sid = [] {
    std::array<BYTE, SECURITY_MAX_SID_SIZE> made{};
    DWORD size = SECURITY_MAX_SID_SIZE;
    CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, made.data(), &size);
    return made;
  }();
  return sid.data();
}

// What a directory has that the launcher has made, in memory of its own.
PSECURITY_DESCRIPTOR privateSecurity(PSID* owner, PACL* list) {
  using namespace launcher_stub::os;
  const Sid user = currentUserSid();
  const SystemBytes bytes = buildPrivateDescriptor(user, buildPrivateList(user, localSystemSid()));
  PSECURITY_DESCRIPTOR copy = LocalAlloc(LMEM_FIXED, bytes.size());
  std::copy(bytes.begin(), bytes.end(), static_cast<std::uint8_t*>(copy));
  BOOL flag = FALSE;
  BOOL present = FALSE;
  GetSecurityDescriptorOwner(copy, owner, &flag);
  GetSecurityDescriptorDacl(copy, &present, list, &flag);
  return copy;
}

struct GetNamedSecurityInfoWCall : FailsWithItsCode {
  DESCRIBES(GetNamedSecurityInfoW);
  static std::vector<Refusal> refusals() { return codes({5, 2, 32, 1450}); }
  static std::wstring subject(LPCWSTR path, const auto&...) { return path; }
  static void done(bool, bool, DWORD result, LPCWSTR path, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID* owner, PSID*,
                   PACL* list, PACL*, PSECURITY_DESCRIPTOR* descriptor) {
    if (result != ERROR_SUCCESS) return;
    if (watch().circumstances().listsKept) {
      LocalFree(*descriptor);
      *descriptor = privateSecurity(owner, list);
    }
    watch().acquired(Resource::localMemory, *descriptor, name, path);
    if (watch().circumstances().ownedByAdministrators) *owner = administrators();
  }
};
struct GetSecurityInfoCall : FailsWithItsCode {
  DESCRIBES(GetSecurityInfo);
  static std::vector<Refusal> refusals() { return codes({5, 6}); }
  static void done(bool, bool, DWORD result, HANDLE, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID*, PSID*, PACL*, PACL*,
                   PSECURITY_DESCRIPTOR* descriptor) {
    if (result == ERROR_SUCCESS) watch().acquired(Resource::localMemory, *descriptor, name);
  }
};
struct SetNamedSecurityInfoWCall : FailsWithItsCode {
  DESCRIBES(SetNamedSecurityInfoW);
  static std::vector<Refusal> refusals() { return codes({5, 2, 1307}); }
  static std::wstring subject(LPCWSTR path, const auto&...) { return path; }
  static void done(bool, bool, const auto&...) {
    if (watch().circumstances().listsKept && !watch().faultWasMet()) watch().wrong("a right list is set again");
  }
};
struct LocalFreeCall : Call {
  DESCRIBES(LocalFree);
  static std::vector<Refusal> refusals() { return doneAndRefused(6); }
  static std::wstring subject(HLOCAL memory) { return watch().origin(Resource::localMemory, memory); }
  static HLOCAL failed(const Refusal& refusal, HLOCAL memory) {
    SetLastError(refusal.code);
    return memory;
  }
  static void done(bool byLauncher, bool, HLOCAL, HLOCAL memory) {
    watch().released(Resource::localMemory, memory, name, byLauncher);
  }
};

}  // namespace

void replaceSecurityCalls(std::vector<ReplacedCall>& list) {
  replaceCall<OpenProcessTokenCall>(list, &OpenProcessToken);
  replaceCall<GetTokenInformationCall>(list, &GetTokenInformation);
  replaceCall<AllocateAndInitializeSidCall>(list, &AllocateAndInitializeSid);
  replaceCall<FreeSidCall>(list, &FreeSid);
  replaceCall<CreateWellKnownSidCall>(list, &CreateWellKnownSid);
  replaceCall<CheckTokenMembershipCall>(list, &CheckTokenMembership);
  replaceCall<InitializeAclCall>(list, &InitializeAcl);
  replaceCall<AddAccessAllowedAceExCall>(list, &AddAccessAllowedAceEx);
  replaceCall<GetAceCall>(list, &GetAce);
  replaceCall<InitializeSecurityDescriptorCall>(list, &InitializeSecurityDescriptor);
  replaceCall<SetSecurityDescriptorOwnerCall>(list, &SetSecurityDescriptorOwner);
  replaceCall<SetSecurityDescriptorDaclCall>(list, &SetSecurityDescriptorDacl);
  replaceCall<SetSecurityDescriptorControlCall>(list, &SetSecurityDescriptorControl);
  replaceCall<GetSecurityDescriptorControlCall>(list, &GetSecurityDescriptorControl);
  replaceCall<MakeSelfRelativeSDCall>(list, &MakeSelfRelativeSD);
  replaceCall<GetNamedSecurityInfoWCall>(list, &GetNamedSecurityInfoW);
  replaceCall<GetSecurityInfoCall>(list, &GetSecurityInfo);
  replaceCall<SetNamedSecurityInfoWCall>(list, &SetNamedSecurityInfoW);
  replaceCall<LocalFreeCall>(list, &LocalFree);
}

}  // namespace call_faults
