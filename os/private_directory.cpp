#include <windows.h>

#include <aclapi.h>

#include <array>
#include <memory>

#include "os/file_status.h"
#include "os/handle.h"
#include "os/log.h"
#include "os/messages.h"
#include "os/path.h"
#include "os/private_list.h"
#include "os/state_root.h"

namespace launcher_stub::os {
namespace {

// A notice goes out once per process, however many directories give cause for it.
struct Notice {
  std::string_view text;
  bool given = false;
};
Notice volumeKeepsNoLists{messages::volumeKeepsNoLists};
Notice listNotPersisted{messages::listNotPersisted};
Notice listReset{messages::listReset};

void give(Notice& notice) {
  if (notice.given) return;
  notice.given = true;
  logLine(notice.text);
}

// What a start asks of the system for three directories and more, kept after the first answer: accounts do not change
// while a process lives, nor does what a volume can keep. A question that failed is asked again.
struct Accounts {
  Sid user;
  Sid system;
  Sid administrators;
};
struct Volume {
  std::array<wchar_t, 260> mountPoint{};
  DWORD flags = 0;
};
Accounts knownAccounts;
Volume knownVolume;

// Those that could not be had are empty.
const Accounts& accounts() {
  if (knownAccounts.user.empty()) knownAccounts.user = currentUserSid();
  if (knownAccounts.system.empty()) knownAccounts.system = localSystemSid();
  if (knownAccounts.administrators.empty()) knownAccounts.administrators = administratorsSid();
  return knownAccounts;
}

struct LocallyFreed {
  void operator()(void* memory) const noexcept { LocalFree(memory); }
};

// Owner and list of an existing directory; both point into `descriptor`.
struct ExistingSecurity {
  void* owner = nullptr;
  ACL* list = nullptr;
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  std::unique_ptr<void, LocallyFreed> descriptor;
};

bool readSecurity(std::wstring path, ExistingSecurity& security) {
  void* raw = nullptr;
  if (GetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                            &security.owner, nullptr, &security.list, nullptr, &raw) != ERROR_SUCCESS) {
    return false;
  }
  security.descriptor.reset(raw);
  DWORD revision = 0;
  return GetSecurityDescriptorControl(raw, &security.control, &revision) != FALSE;
}

bool setOwner(std::wstring path, Sid owner) {
  return SetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, owner.data(), nullptr, nullptr,
                               nullptr) == ERROR_SUCCESS;
}

bool setList(std::wstring path, SystemBytes list) {
  constexpr SECURITY_INFORMATION parts = DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION;
  return SetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT, parts, nullptr, nullptr,
                               reinterpret_cast<ACL*>(list.data()), nullptr) == ERROR_SUCCESS;
}

bool readVolumeFlags(const std::wstring& path, DWORD& flags) {
  Volume volume;
  const auto size = static_cast<DWORD>(volume.mountPoint.size());
  if (!GetVolumePathNameW(path.c_str(), volume.mountPoint.data(), size)) return false;
  if (volume.mountPoint != knownVolume.mountPoint) {
    if (!GetVolumeInformationW(volume.mountPoint.data(), nullptr, 0, nullptr, nullptr, &volume.flags, nullptr, 0)) {
      return false;
    }
    knownVolume = volume;
  }
  flags = knownVolume.flags;
  return true;
}

OwnerFacts ownerFacts(const void* owner, const Sid& user, Sid administrators) {
  OwnerFacts facts;
  facts.isUser = sameSid(user, owner);
  facts.isAdministrators = sameSid(administrators, owner);
  BOOL isMember = FALSE;
  if (facts.isAdministrators && CheckTokenMembership(nullptr, administrators.data(), &isMember)) {
    facts.userIsMember = isMember != FALSE;
  }
  return facts;
}

bool settleOwnership(const std::wstring& path, const OwnerFacts& facts, const Sid& user, std::string* error) {
  switch (judgeOwner(facts)) {
    case OwnerVerdict::accepted:
      return true;
    case OwnerVerdict::takeOver:
      return setOwner(path, user);
    case OwnerVerdict::foreign:
      if (error != nullptr) *error = messages::rootBelongsToAnother;
      return false;
    case OwnerVerdict::unknown:
      break;
  }
  return false;
}

bool settleList(const std::wstring& path, const ExistingSecurity& existing, const SystemBytes& wanted) {
  if (wanted.empty()) return false;
  if (isPrivateList(existing.list, existing.control, wanted)) return true;
  if (!setList(path, wanted)) return false;
  give(listReset);
  return true;
}

// Tells, as a notice, of a file system that takes the list and then forgets it. Failing to look is no finding.
void checkListPersisted(const std::wstring& path) {
  constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const OwnedHandle directory = adoptHandle(
      CreateFileW(path.c_str(), READ_CONTROL, shareAll, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  if (directory == nullptr) return;
  ACL* list = nullptr;
  void* raw = nullptr;
  if (GetSecurityInfo(directory.get(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list, nullptr,
                      &raw) != ERROR_SUCCESS) {
    return;
  }
  const std::unique_ptr<void, LocallyFreed> descriptor(raw);
  if (list == nullptr) give(listNotPersisted);
}

bool createWithPrivateList(const std::wstring& path, std::string* error) {
  const Accounts& known = accounts();
  SystemBytes descriptor = buildPrivateDescriptor(known.user, buildPrivateList(known.user, known.system));
  if (descriptor.empty()) return false;
  SECURITY_ATTRIBUTES attributes{};
  attributes.nLength = sizeof attributes;
  attributes.lpSecurityDescriptor = descriptor.data();
  attributes.bInheritHandle = FALSE;
  if (!CreateDirectoryW(path.c_str(), &attributes)) {
    if (GetLastError() != ERROR_ALREADY_EXISTS) return false;
    return verifyPrivateDirectory(path, error);  // somebody was faster: theirs is judged like any other
  }
  checkListPersisted(path);
  return true;
}

}  // namespace

bool createPrivateDirectory(const std::wstring& path, std::string* error) {
  const PathStatus status = pathStatus(path);
  if (status == PathStatus::directory) return verifyPrivateDirectory(path, error);
  if (status != PathStatus::missing) return false;
  const std::wstring parent = parentPath(path);
  if (!parent.empty() && pathIsMissing(parent) && !createPrivateDirectory(parent, error)) return false;
  return createWithPrivateList(path, error);
}

bool verifyPrivateDirectory(const std::wstring& path, std::string* error) {
  DWORD volumeFlags = 0;
  if (!readVolumeFlags(path, volumeFlags)) return false;
  if ((volumeFlags & FILE_PERSISTENT_ACLS) == 0) {
    give(volumeKeepsNoLists);
    return true;
  }
  ExistingSecurity existing;
  if (!readSecurity(path, existing)) return false;
  const auto& [user, system, administrators] = accounts();
  if (user.empty() || system.empty() || administrators.empty()) return false;
  if (!settleOwnership(path, ownerFacts(existing.owner, user, administrators), user, error)) return false;
  return settleList(path, existing, buildPrivateList(user, system));
}

void resetStateRootForTests() {
  knownAccounts = {};
  knownVolume = {};
  volumeKeepsNoLists.given = false;
  listNotPersisted.given = false;
  listReset.given = false;
}

}  // namespace launcher_stub::os
