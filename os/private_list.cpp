#include "os/private_list.h"

#include <windows.h>

#include <cstring>
#include <memory>

#include "os/handle.h"

namespace launcher_stub::os {
namespace {

// The system's functions take their read-only arguments without const.
template <typename T>
T* unconst(const void* pointer) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the one place that does it
  return static_cast<T*>(const_cast<void*>(pointer));
}

const ACL* asList(const SystemBytes& bytes) { return reinterpret_cast<const ACL*>(bytes.data()); }

SystemBytes copySid(const void* sid) {
  const auto* first = static_cast<const std::uint8_t*>(sid);
  return {first, first + GetLengthSid(unconst<void>(sid))};
}

DWORD entrySize(const Sid& sid) {
  // The entry's own structure already counts the first four bytes of the identifier.
  return static_cast<DWORD>(sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD) + sid.size());
}

bool addFullAccess(ACL* list, const Sid& sid) {
  constexpr DWORD inherited = OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE;
  return AddAccessAllowedAceEx(list, ACL_REVISION, inherited, FILE_ALL_ACCESS, unconst<void>(sid.data())) != FALSE;
}

bool sameEntry(const ACL* a, const ACL* b, DWORD index) {
  void* first = nullptr;
  void* second = nullptr;
  if (!GetAce(unconst<ACL>(a), index, &first) || !GetAce(unconst<ACL>(b), index, &second)) return false;
  const WORD size = static_cast<ACE_HEADER*>(first)->AceSize;
  return size == static_cast<ACE_HEADER*>(second)->AceSize && std::memcmp(first, second, size) == 0;
}

}  // namespace

Sid currentUserSid() {
  HANDLE raw = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &raw)) return {};
  const OwnedHandle token = adoptHandle(raw);
  DWORD size = 0;
  (void)GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);  // fails by design: it only tells the size
  if (size < sizeof(TOKEN_USER)) return {};
  std::vector<std::uint64_t> words(size / sizeof(std::uint64_t) + 1);  // aligned for the pointer in it
  if (!GetTokenInformation(token.get(), TokenUser, words.data(), size, &size)) return {};
  return copySid(reinterpret_cast<const TOKEN_USER*>(words.data())->User.Sid);
}

Sid localSystemSid() {
  struct Freed {
    void operator()(void* sid) const noexcept { FreeSid(sid); }
  };
  SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
  void* raw = nullptr;
  if (!AllocateAndInitializeSid(&authority, 1, SECURITY_LOCAL_SYSTEM_RID, 0, 0, 0, 0, 0, 0, 0, &raw)) return {};
  const std::unique_ptr<void, Freed> sid(raw);
  return copySid(sid.get());
}

Sid administratorsSid() {
  Sid sid(SECURITY_MAX_SID_SIZE);
  auto size = static_cast<DWORD>(sid.size());
  if (!CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid.data(), &size)) return {};
  sid.resize(size);
  return sid;
}

bool sameSid(const Sid& a, const void* b) {
  return !a.empty() && b != nullptr && EqualSid(unconst<void>(a.data()), unconst<void>(b));
}

SystemBytes buildPrivateList(const Sid& user, const Sid& system) {
  if (user.empty() || system.empty()) return {};
  const bool userIsSystem = sameSid(user, system.data());
  const DWORD size = static_cast<DWORD>(sizeof(ACL)) + entrySize(user) + (userIsSystem ? 0 : entrySize(system));
  SystemBytes bytes(size);
  auto* list = reinterpret_cast<ACL*>(bytes.data());
  if (!InitializeAcl(list, size, ACL_REVISION)) return {};
  if (!addFullAccess(list, user)) return {};
  if (!userIsSystem && !addFullAccess(list, system)) return {};
  return bytes;
}

SystemBytes buildPrivateDescriptor(const Sid& user, const SystemBytes& list) {
  if (user.empty() || list.empty()) return {};
  SECURITY_DESCRIPTOR descriptor{};
  if (!InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION)) return {};
  if (!SetSecurityDescriptorOwner(&descriptor, unconst<void>(user.data()), FALSE)) return {};
  if (!SetSecurityDescriptorDacl(&descriptor, TRUE, unconst<ACL>(list.data()), FALSE)) return {};
  if (!SetSecurityDescriptorControl(&descriptor, SE_DACL_PROTECTED, SE_DACL_PROTECTED)) return {};

  // Its head, then the parts one after the other: all have sizes of whole words, so nothing lies between them.
  SystemBytes bytes(sizeof(SECURITY_DESCRIPTOR_RELATIVE) + user.size() + list.size());
  auto size = static_cast<DWORD>(bytes.size());
  if (!MakeSelfRelativeSD(&descriptor, bytes.data(), &size)) return {};
  return bytes;
}

bool isPrivateList(const void* existing, std::uint16_t control, const SystemBytes& wanted) {
  if (wanted.empty() || existing == nullptr || (control & SE_DACL_PROTECTED) == 0) return false;
  const auto* list = static_cast<const ACL*>(existing);
  const ACL* privateList = asList(wanted);
  if (list->AceCount != privateList->AceCount) return false;
  for (DWORD index = 0; index < list->AceCount; ++index) {
    if (!sameEntry(list, privateList, index)) return false;
  }
  return true;
}

OwnerVerdict judgeOwner(const OwnerFacts& facts) {
  if (facts.isUser) return OwnerVerdict::accepted;
  if (!facts.isAdministrators) return OwnerVerdict::foreign;
  if (!facts.userIsMember.has_value()) return OwnerVerdict::unknown;
  return *facts.userIsMember ? OwnerVerdict::takeOver : OwnerVerdict::foreign;
}

}  // namespace launcher_stub::os
