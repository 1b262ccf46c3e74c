// What becomes of a private directory, by what is found on a file system that keeps owners and lists.

#include <gtest/gtest.h>

#include <cwchar>

#include "tests/os/faults/volume_with_lists.h"

namespace launcher_stub::os {
namespace {

using namespace launcher_stub::tests;

using PrivateDirectoryFaultTest = VolumeWithListsTest;

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

TEST_F(PrivateDirectoryFaultTest, isJudgedByItsOwner) {
  struct Case {
    const char* why;
    Sid owner;
    BOOL isMember;  // of the administrators
    bool accepted;
    std::size_t setCalls;
  };
  Sid neighbour = user_;  // another user of the same machine or domain: as long, and all but the last number the same
  ++neighbour.back();
  const Sid everyone = {1, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0};
  const Case cases[] = {
      {"the user", user_, FALSE, true, 0},
      {"the user, who is an administrator", user_, TRUE, true, 0},
      {"the administrators, seen by a member", administratorsSid(), TRUE, true, 1},
      {"the administrators, seen by another", administratorsSid(), FALSE, false, 0},
      {"the local system account", system_, FALSE, false, 0},
      {"the local system account, seen by an administrator", system_, TRUE, false, 0},
      {"the next user", neighbour, FALSE, false, 0},
      {"the next user, seen by an administrator", neighbour, TRUE, false, 0},
      {"everyone", everyone, TRUE, false, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    keepAs(c.owner, wanted_);
    setCalls_.clear();
    fakeCheckTokenMembership = [&c](PBOOL isMember) {
      *isMember = c.isMember;
      return TRUE;
    };
    std::string error;

    EXPECT_EQ(verify(&error), c.accepted);

    EXPECT_EQ(error, c.accepted ? "" : foreignText);
    EXPECT_EQ(setCalls_.size(), c.setCalls);
  }
}

TEST_F(PrivateDirectoryFaultTest, withoutAnyOwnerBelongsToAnother) {
  const auto withOwner = fakeGetNamedSecurityInfoW;
  fakeGetNamedSecurityInfoW = [&](PSID* owner, PACL* list, PSECURITY_DESCRIPTOR* descriptor) {
    const DWORD result = withOwner(owner, list, descriptor);
    *owner = nullptr;
    return result;
  };
  std::string error;

  EXPECT_FALSE(verify(&error));

  EXPECT_EQ(error, foreignText);
  EXPECT_EQ(setCalls_.size(), 0u);
}

TEST_F(PrivateDirectoryFaultTest, withoutAListGetsOne) {
  const auto withList = fakeGetNamedSecurityInfoW;
  fakeGetNamedSecurityInfoW = [&](PSID* owner, PACL* list, PSECURITY_DESCRIPTOR* descriptor) {
    const DWORD result = withList(owner, list, descriptor);
    *list = nullptr;  // everybody may do everything
    return result;
  };
  const StandardErrorCapture errors;

  EXPECT_TRUE(verify());

  ASSERT_EQ(setCalls_.size(), 1u);
  EXPECT_EQ(setCalls_[0].list, wanted_);
  EXPECT_EQ(errors.text(), resetLine);
}

TEST_F(PrivateDirectoryFaultTest, isRefusedWhereTheListCannotBeRead) {
  fakeGetNamedSecurityInfoW = [](PSID*, PACL*, PSECURITY_DESCRIPTOR*) { return DWORD{ERROR_ACCESS_DENIED}; };

  EXPECT_FALSE(verify());
}

TEST_F(PrivateDirectoryFaultTest, isRefusedWhereTheVolumeCannotBeTold) {
  fakeGetVolumePathNameW = [](LPCWSTR, LPWSTR) { return FALSE; };

  EXPECT_FALSE(verify());
}

TEST_F(PrivateDirectoryFaultTest, isRefusedWhereTheVolumeCannotBeAskedAndAsksAgainTheNextTime) {
  const auto answered = fakeGetVolumeInformationW;
  fakeGetVolumeInformationW = [](LPDWORD) { return FALSE; };
  EXPECT_FALSE(verify());

  fakeGetVolumeInformationW = answered;
  EXPECT_TRUE(verify());
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

// The notices speak of the state root, and yet go out for whichever private directory gives cause first: the root, one
// of its two folders, or an attempt's.
TEST_F(PrivateDirectoryFaultTest, givesCauseForANoticeWhetherItIsTheRootOrAFolderOfIt) {
  struct Case {
    const char* why;
    std::wstring drifted;  // the directory whose list is another one
  };
  const Case cases[] = {
      {"the root", L"root"}, {"attempts", L"root\\attempts"}, {"slots", L"root\\slots"}, {"none", L"elsewhere"}};
  for (const wchar_t* name : {L"root", L"root\\attempts", L"root\\slots"}) makeDirectory(directory_ / name);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    resetStateRootForTests();
    watchGetNamedSecurityInfoW = [&](LPCWSTR path, auto...) {
      keepAs(user_, path == directory_ / c.drifted ? drifted_ : wanted_);
    };
    const StandardErrorCapture errors;

    for (int launch = 0; launch < 2; ++launch) {  // as a relaunch would, were it to look again
      EXPECT_TRUE(createPrivateDirectory(directory_ / L"root"));
      EXPECT_TRUE(createPrivateDirectory(directory_ / L"root\\attempts"));
      EXPECT_TRUE(createPrivateDirectory(directory_ / L"root\\slots"));
    }

    EXPECT_EQ(errors.text(), c.drifted == L"elsewhere" ? "" : resetLine);
  }
}

TEST_F(PrivateDirectoryFaultTest, givesEachNoticeOnceBesideTheOthers) {
  keepAs(user_, drifted_);
  bool onPlainVolume = false;
  fakeGetVolumePathNameW = [&](LPCWSTR, LPWSTR volume) {
    std::wcscpy(volume, onPlainVolume ? L"P:\\" : L"L:\\");
    return TRUE;
  };
  fakeGetVolumeInformationW = [&](LPDWORD flags) {
    *flags = onPlainVolume ? 0 : FILE_PERSISTENT_ACLS;
    return TRUE;
  };
  fakeGetSecurityInfo = [](PACL* list, PSECURITY_DESCRIPTOR* descriptor) {
    *descriptor = LocalAlloc(LMEM_FIXED, 8);
    *list = nullptr;
    return DWORD{ERROR_SUCCESS};
  };
  const StandardErrorCapture errors;

  for (const wchar_t* name : {L"one", L"two"}) {
    onPlainVolume = false;
    EXPECT_TRUE(createPrivateDirectory(directory_ / name));
    EXPECT_TRUE(createPrivateDirectory(directory_ / name));
    onPlainVolume = true;
    EXPECT_TRUE(createPrivateDirectory(directory_ / name));
  }

  EXPECT_EQ(errors.text(), "filesystem did not persist the private directory ACL\n" + resetLine +
                               "filesystem does not provide persistent state root ACLs\n");
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
