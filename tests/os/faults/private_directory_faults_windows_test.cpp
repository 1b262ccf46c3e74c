// The private directory on a file system that keeps owners and lists, as NTFS does, played by replaced calls: Wine
// keeps none. Every descriptor here is made and read by the system's own functions.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "os/private_list.h"
#include "os/state_root.h"
#include "tests/os/faults/replaced_calls.h"
#include "tests/support/standard_error_capture.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::os {
namespace {

using namespace launcher_stub::tests;

const std::string resetLine = "reset state root DACL to current user and system principals\n";
const std::string foreignText = "state root belongs to another account";

struct SetCall {
  SECURITY_INFORMATION parts = 0;
  Sid owner;
  SystemBytes list;
};

SystemBytes bytesOf(const void* start, std::size_t size) {
  const auto* first = static_cast<const std::uint8_t*>(start);
  return {first, first + size};
}

class PrivateDirectoryFaultTest : public testing::Test {
 protected:
  PrivateDirectoryFaultTest() { keepAs(user_, buildPrivateList(user_, system_)); }
  void SetUp() override {
    resetStateRootNoticesForTests();
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
  void keepAs(const Sid& owner, const SystemBytes& list) { kept_ = buildPrivateDescriptor(owner, list); }

  bool verify(std::string* error = nullptr) { return verifyPrivateDirectory(directory_.path(), error); }

  const Sid user_ = currentUserSid();
  const Sid system_ = localSystemSid();
  const SystemBytes wanted_ = buildPrivateList(user_, system_);
  const SystemBytes drifted_ = buildPrivateList(system_, user_);  // the two entries in the other order
  const TempDirectory directory_;
  SystemBytes kept_;
  std::vector<SetCall> setCalls_;
  DWORD setResult_ = ERROR_SUCCESS;
};

TEST_F(PrivateDirectoryFaultTest, isLeftAloneWhereOwnerAndListAreRight) {
  const StandardErrorCapture errors;

  EXPECT_TRUE(verify());

  EXPECT_EQ(setCalls_.size(), 0u);
  EXPECT_EQ(errors.text(), "");
}

TEST_F(PrivateDirectoryFaultTest, getsItsListBackWithOneLineHoweverOften) {
  keepAs(user_, drifted_);
  const StandardErrorCapture errors;

  EXPECT_TRUE(verify());
  EXPECT_TRUE(verify());

  ASSERT_EQ(setCalls_.size(), 2u);
  EXPECT_EQ(setCalls_[0].parts, 0x80000004u);
  EXPECT_EQ(setCalls_[0].owner, Sid{});
  EXPECT_EQ(setCalls_[0].list, wanted_);
  EXPECT_EQ(errors.text(), resetLine);
}

TEST_F(PrivateDirectoryFaultTest, failsWithoutAWordWhereTheListCannotBeReplaced) {
  keepAs(user_, drifted_);
  setResult_ = ERROR_ACCESS_DENIED;
  const StandardErrorCapture errors;
  std::string error;

  EXPECT_FALSE(verify(&error));

  EXPECT_EQ(error + errors.text(), "");
}

TEST_F(PrivateDirectoryFaultTest, ofAnotherAccountIsNotTouched) {
  keepAs(system_, drifted_);
  std::string error;

  EXPECT_FALSE(verify(&error));

  EXPECT_EQ(error, foreignText);
  EXPECT_EQ(setCalls_.size(), 0u);
}

TEST_F(PrivateDirectoryFaultTest, ofTheAdministratorsGoesOverToAMember) {
  keepAs(administratorsSid(), wanted_);
  fakeCheckTokenMembership = [](PBOOL isMember) {
    *isMember = TRUE;
    return TRUE;
  };

  EXPECT_TRUE(verify());

  ASSERT_EQ(setCalls_.size(), 1u);
  EXPECT_EQ(setCalls_[0].parts, 1u);
  EXPECT_EQ(setCalls_[0].owner, user_);
  EXPECT_EQ(setCalls_[0].list, SystemBytes{});
}

TEST_F(PrivateDirectoryFaultTest, ofTheAdministratorsIsRefusedToOthersAndInDoubt) {
  struct Case {
    const char* why;
    BOOL told;
    BOOL isMember;
    DWORD setResult;
    std::string error;
  };
  const Case cases[] = {
      {"not a member", TRUE, FALSE, ERROR_SUCCESS, foreignText},
      {"membership not told", FALSE, TRUE, ERROR_SUCCESS, ""},
      {"ownership not taken", TRUE, TRUE, ERROR_ACCESS_DENIED, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    keepAs(administratorsSid(), wanted_);
    setResult_ = c.setResult;
    fakeCheckTokenMembership = [&c](PBOOL isMember) {
      *isMember = c.isMember;
      return c.told;
    };
    std::string error;

    EXPECT_FALSE(verify(&error));

    EXPECT_EQ(error, c.error);
  }
}

TEST_F(PrivateDirectoryFaultTest, isAcceptedAfterOneLineOnAVolumeThatKeepsNoLists) {
  keepAs(system_, drifted_);  // not even looked at
  fakeGetVolumeInformationW = [](LPDWORD flags) {
    *flags = 0;
    return TRUE;
  };
  const StandardErrorCapture errors;

  EXPECT_TRUE(verify());
  EXPECT_TRUE(verify());

  EXPECT_EQ(setCalls_.size(), 0u);
  EXPECT_EQ(errors.text(), "filesystem does not provide persistent state root ACLs\n");
}

TEST_F(PrivateDirectoryFaultTest, isRefusedWhereTheVolumeOrTheListCannotBeRead) {
  fakeGetNamedSecurityInfoW = [](PSID*, PACL*, PSECURITY_DESCRIPTOR*) { return DWORD{ERROR_ACCESS_DENIED}; };
  EXPECT_FALSE(verify());

  fakeGetVolumeInformationW = [](LPDWORD) { return FALSE; };
  EXPECT_FALSE(verify());
}

TEST_F(PrivateDirectoryFaultTest, isCreatedWithAllAncestorsEachWithTheProtectedList) {
  const StandardErrorCapture errors;
  std::vector<SystemBytes> lists;
  fakeCreateDirectoryW = [&](LPCWSTR path, LPSECURITY_ATTRIBUTES attributes) {
    auto* const descriptor = attributes->lpSecurityDescriptor;
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    GetSecurityDescriptorControl(descriptor, &control, &revision);
    PSID owner = nullptr;
    PACL list = nullptr;
    BOOL present = FALSE;
    BOOL defaulted = TRUE;
    GetSecurityDescriptorOwner(descriptor, &owner, &defaulted);
    EXPECT_FALSE(defaulted);
    EXPECT_TRUE(sameSid(user_, owner));
    GetSecurityDescriptorDacl(descriptor, &present, &list, &defaulted);
    EXPECT_TRUE(present && !defaulted);
    EXPECT_TRUE(isPrivateList(list, control, wanted_));
    EXPECT_FALSE(attributes->bInheritHandle);
    lists.push_back(bytesOf(list, list->AclSize));
    return reallyCreateDirectory(path);
  };

  fakeGetSecurityInfo = [this](PACL* list, PSECURITY_DESCRIPTOR* descriptor) {
    *descriptor = LocalAlloc(LMEM_FIXED, 8);
    *list = reinterpret_cast<PACL>(const_cast<std::uint8_t*>(wanted_.data()));
    return DWORD{ERROR_SUCCESS};
  };

  EXPECT_TRUE(createPrivateDirectory(directory_ / L"one\\two\\three"));

  EXPECT_EQ(lists, std::vector<SystemBytes>(3, wanted_));
  EXPECT_EQ(errors.text(), "");
}

TEST_F(PrivateDirectoryFaultTest, saysOnceThatTheFileSystemDidNotKeepTheList) {
  fakeGetSecurityInfo = [](PACL* list, PSECURITY_DESCRIPTOR* descriptor) {
    *descriptor = LocalAlloc(LMEM_FIXED, 8);
    *list = nullptr;
    return DWORD{ERROR_SUCCESS};
  };
  const StandardErrorCapture errors;

  EXPECT_TRUE(createPrivateDirectory(directory_ / L"one\\two"));

  EXPECT_EQ(errors.text(), "filesystem did not persist the private directory ACL\n");
}

TEST_F(PrivateDirectoryFaultTest, createdByAFasterLauncherIsVerified) {
  const StandardErrorCapture errors;
  keepAs(user_, drifted_);
  fakeCreateDirectoryW = [](LPCWSTR, LPSECURITY_ATTRIBUTES) {
    SetLastError(ERROR_ALREADY_EXISTS);
    return FALSE;
  };

  EXPECT_TRUE(createPrivateDirectory(directory_ / L"root"));

  EXPECT_EQ(errors.text(), resetLine);
}

}  // namespace
}  // namespace launcher_stub::os
