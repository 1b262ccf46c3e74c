// A file system that keeps owners and lists, as NTFS does, played by replaced calls: Wine keeps none. Every descriptor
// here is made and read by the system's own functions.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "os/private_list.h"
#include "os/state_root.h"
#include "tests/os/faults/replaced_calls.h"
#include "tests/support/standard_error_capture.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::tests {

using os::Sid;
using os::SystemBytes;

inline const std::string resetLine = "reset state root DACL to current user and system principals\n";
inline const std::string foreignText = "state root belongs to another account";

struct SetCall {
  SECURITY_INFORMATION parts = 0;
  Sid owner;
  SystemBytes list;
};

inline SystemBytes bytesOf(const void* start, std::size_t size) {
  const auto* first = static_cast<const std::uint8_t*>(start);
  return {first, first + size};
}

class VolumeWithListsTest : public testing::Test {
 protected:
  VolumeWithListsTest() { keepAs(user_, os::buildPrivateList(user_, system_)); }
  void SetUp() override {
    os::resetStateRootForTests();
    fakeGetVolumeInformationW = [](LPDWORD flags) {
      *flags = FILE_PERSISTENT_ACLS;
      return TRUE;
    };
    fakeGetNamedSecurityInfoW = [this](PSID* owner, PACL* list, PSECURITY_DESCRIPTOR* descriptor) {
      void* copy = LocalAlloc(LMEM_FIXED, kept_.size());
      std::copy(kept_.begin(), kept_.end(), static_cast<std::uint8_t*>(copy));
      BOOL flag = FALSE;
      BOOL present = FALSE;
      GetSecurityDescriptorOwner(copy, owner, &flag);
      GetSecurityDescriptorDacl(copy, &present, list, &flag);
      *descriptor = copy;
      return DWORD{ERROR_SUCCESS};
    };
    fakeSetNamedSecurityInfoW = [this](SECURITY_INFORMATION parts, PSID owner, PACL list) {
      SetCall call;
      call.parts = parts;
      if (owner != nullptr) call.owner = bytesOf(owner, GetLengthSid(owner));
      if (list != nullptr) call.list = bytesOf(list, list->AclSize);
      setCalls_.push_back(call);
      return setResult_;
    };
  }
  void TearDown() override { forgetFakes(); }

  // What the directory has from now on.
  void keepAs(const Sid& owner, const SystemBytes& list) { kept_ = os::buildPrivateDescriptor(owner, list); }

  bool verify(std::string* error = nullptr) { return os::verifyPrivateDirectory(directory_.path(), error); }

  const Sid user_ = os::currentUserSid();
  const Sid system_ = os::localSystemSid();
  const SystemBytes wanted_ = os::buildPrivateList(user_, system_);
  const SystemBytes drifted_ = os::buildPrivateList(system_, user_);  // the two entries in the other order
  const TempDirectory directory_;
  SystemBytes kept_;
  std::vector<SetCall> setCalls_;
  DWORD setResult_ = ERROR_SUCCESS;
};

}  // namespace launcher_stub::tests
