// What exactly the system is asked for where a private directory is made or looked at: each argument of each call, and
// what its pointers lead to, byte for byte. Wine would take nearly anything here, so the calls are all that can be
// seen.

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <map>

#include "tests/os/faults/volume_with_lists.h"

namespace launcher_stub::os {
namespace {

using namespace launcher_stub::tests;

const SystemBytes systemSidBytes = {1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0};                         // S-1-5-18
const SystemBytes administratorsSidBytes = {1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0, 0x20, 2, 0, 0};  // S-1-5-32-544

// The private list put together by hand.
SystemBytes listBytes(const std::vector<SystemBytes>& sids) {
  SystemBytes list = {2, 0, 0, 0, static_cast<std::uint8_t>(sids.size()), 0, 0, 0};
  for (const SystemBytes& sid : sids) {
    const auto size = static_cast<std::uint8_t>(8 + sid.size());
    const SystemBytes header = {0, 3, size, 0, 0xFF, 0x01, 0x1F, 0x00};  // allow, inherited by both kinds, 0x1F01FF
    list.insert(list.end(), header.begin(), header.end());
    list.insert(list.end(), sid.begin(), sid.end());
  }
  list[2] = static_cast<std::uint8_t>(list.size());
  return list;
}

// A self-contained descriptor, laid open.
struct DescriptorParts {
  std::uint32_t revisionAndControl = 0;  // revision, a zero byte, the control bits
  std::uint32_t group = 1;               // offset; 0 = none
  std::uint32_t audit = 1;
  SystemBytes owner;
  SystemBytes list;
  std::size_t size = 0;
};

std::uint32_t numberAt(const std::uint8_t* bytes, std::size_t offset) {
  std::uint32_t number = 0;
  std::copy_n(bytes + offset, sizeof number, reinterpret_cast<std::uint8_t*>(&number));
  return number;
}

// Windows and Wine place owner and list in different orders behind the 20 bytes of the header, so they are followed.
DescriptorParts layOpen(const void* descriptor) {
  const auto* bytes = static_cast<const std::uint8_t*>(descriptor);
  DescriptorParts parts;
  parts.revisionAndControl = numberAt(bytes, 0);
  const std::uint32_t owner = numberAt(bytes, 4);
  parts.group = numberAt(bytes, 8);
  parts.audit = numberAt(bytes, 12);
  const std::uint32_t list = numberAt(bytes, 16);
  if (owner != 0) parts.owner = bytesOf(bytes + owner, std::size_t{8} + 4u * bytes[owner + 1]);
  if (list != 0) parts.list = bytesOf(bytes + list, numberAt(bytes, list) >> 16);
  parts.size = GetSecurityDescriptorLength(const_cast<void*>(descriptor));
  return parts;
}

struct CreateCall {
  std::wstring path;
  DWORD length = 0;
  BOOL inherit = TRUE;
  DescriptorParts descriptor;
};

struct ReplaceCall {
  std::wstring path;
  SE_OBJECT_TYPE type = SE_UNKNOWN_OBJECT_TYPE;
  SECURITY_INFORMATION parts = 0;
  SystemBytes owner, group, list, audit;  // empty: null
};

SystemBytes sidAt(PSID sid) { return sid == nullptr ? SystemBytes{} : bytesOf(sid, GetLengthSid(sid)); }
SystemBytes listAt(PACL list) { return list == nullptr ? SystemBytes{} : bytesOf(list, list->AclSize); }

class PrivateDirectoryCallsTest : public VolumeWithListsTest {
 protected:
  void SetUp() override {
    VolumeWithListsTest::SetUp();
    watchCreateDirectoryW = [this](LPCWSTR path, LPSECURITY_ATTRIBUTES attributes) {
      CreateCall call{.path = path};
      if (attributes != nullptr) {
        call.length = attributes->nLength;
        call.inherit = attributes->bInheritHandle;
        call.descriptor = layOpen(attributes->lpSecurityDescriptor);
      }
      created_.push_back(call);
    };
    watchSetNamedSecurityInfoW = [this](LPWSTR path, SE_OBJECT_TYPE type, SECURITY_INFORMATION parts, PSID owner,
                                        PSID group, PACL list, PACL audit) {
      replaced_.push_back({path, type, parts, sidAt(owner), sidAt(group), listAt(list), listAt(audit)});
    };
    fakeGetSecurityInfo = [this](PACL* list, PSECURITY_DESCRIPTOR* descriptor) {
      *list = reinterpret_cast<PACL>(const_cast<std::uint8_t*>(wanted_.data()));
      *descriptor = LocalAlloc(LMEM_FIXED, 8);
      return DWORD{ERROR_SUCCESS};
    };
  }

  // The user of the process's token is the local system account from now on.
  void runAsLocalSystem() {
    fakeGetTokenInformation = [](LPVOID information, DWORD size, PDWORD needed) -> BOOL {
      *needed = static_cast<DWORD>(sizeof(TOKEN_USER) + systemSidBytes.size());
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      if (size < *needed) return FALSE;
      auto* sid = static_cast<std::uint8_t*>(information) + sizeof(TOKEN_USER);
      std::copy(systemSidBytes.begin(), systemSidBytes.end(), sid);
      static_cast<TOKEN_USER*>(information)->User = {sid, 0};
      return TRUE;
    };
  }

  void expectOneReplacement(SECURITY_INFORMATION parts, const SystemBytes& owner, const SystemBytes& list) const {
    ASSERT_EQ(replaced_.size(), 1u);
    expectReplacement(replaced_[0], parts, owner, list);
  }
  void expectReplacement(const ReplaceCall& call, SECURITY_INFORMATION parts, const SystemBytes& owner,
                         const SystemBytes& list) const {
    EXPECT_EQ(call.path, directory_.path());
    EXPECT_EQ(call.type, SE_FILE_OBJECT);
    EXPECT_EQ(call.parts, parts);
    EXPECT_EQ(call.owner, owner);
    EXPECT_EQ(call.group, SystemBytes{});
    EXPECT_EQ(call.list, list);
    EXPECT_EQ(call.audit, SystemBytes{});
  }

  const StandardErrorCapture errors_;
  const SystemBytes twoEntries_ = listBytes({user_, systemSidBytes});
  std::vector<CreateCall> created_;
  std::vector<ReplaceCall> replaced_;
};

TEST_F(PrivateDirectoryCallsTest, eachMissingLevelIsCreatedByItsNameWithExactlyThisDescriptor) {
  EXPECT_TRUE(createPrivateDirectory(directory_ / L"one\\two/three \u0416"));

  ASSERT_EQ(created_.size(), 3u);
  EXPECT_EQ(created_[0].path, directory_ / L"one");
  EXPECT_EQ(created_[1].path, directory_ / L"one\\two");
  EXPECT_EQ(created_[2].path, directory_ / L"one\\two/three \u0416");
  for (const CreateCall& call : created_) {
    EXPECT_EQ(call.length, 24u);
    EXPECT_FALSE(call.inherit);
    // Revision 1; protected, with a list, neither of the two defaulted, self-contained.
    EXPECT_EQ(call.descriptor.revisionAndControl, 0x90040001u);
    EXPECT_EQ(call.descriptor.group, 0u);
    EXPECT_EQ(call.descriptor.audit, 0u);
    EXPECT_EQ(call.descriptor.owner, user_);
    EXPECT_EQ(call.descriptor.list, twoEntries_);
    EXPECT_EQ(call.descriptor.size, 20u + user_.size() + twoEntries_.size()) << "and nothing else is in it";
  }
  EXPECT_EQ(replaced_.size(), 0u);
}

TEST_F(PrivateDirectoryCallsTest, theLocalSystemAccountCreatesWithOneEntry) {
  runAsLocalSystem();

  EXPECT_TRUE(createPrivateDirectory(directory_ / L"root"));

  ASSERT_EQ(created_.size(), 1u);
  EXPECT_EQ(created_[0].descriptor.owner, systemSidBytes);
  EXPECT_EQ(created_[0].descriptor.list, listBytes({systemSidBytes}));
}

TEST_F(PrivateDirectoryCallsTest, theListOfANewDirectoryIsReadBackThroughAHandleThatDisturbsNobody) {
  int opened = 0;
  watchCreateFileW = [&](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES attributes, DWORD disposition,
                         DWORD flags, HANDLE like) {
    ++opened;
    EXPECT_EQ(std::wstring(path), directory_ / L"root");
    EXPECT_EQ(access, 0x20000u);
    EXPECT_EQ(sharing, 7u);
    EXPECT_EQ(attributes, nullptr);
    EXPECT_EQ(disposition, 3u);
    EXPECT_EQ(flags, 0x02000000u);
    EXPECT_EQ(like, nullptr);
  };
  HANDLE asked = nullptr;
  watchGetSecurityInfo = [&](HANDLE handle, SE_OBJECT_TYPE type, SECURITY_INFORMATION parts, PSID* owner, PSID* group,
                             PACL* list, PACL* audit, PSECURITY_DESCRIPTOR* descriptor) {
    asked = handle;
    wchar_t path[1024] = {};
    GetFinalPathNameByHandleW(handle, path, 1024, 0);
    EXPECT_TRUE(std::wstring(path).ends_with(L"\\root"));
    EXPECT_EQ(type, SE_FILE_OBJECT);
    EXPECT_EQ(parts, 4u);
    EXPECT_TRUE(owner == nullptr && group == nullptr && audit == nullptr);
    EXPECT_TRUE(list != nullptr && descriptor != nullptr);
  };

  EXPECT_TRUE(createPrivateDirectory(directory_ / L"root"));

  EXPECT_EQ(opened, 1);
  ASSERT_NE(asked, nullptr);
  DWORD flags = 0;
  EXPECT_FALSE(GetHandleInformation(asked, &flags)) << "closed again";
}

TEST_F(PrivateDirectoryCallsTest, anExistingDirectoryIsAskedForItsVolumeOwnerAndList) {
  std::vector<std::string> calls;
  std::wstring volume;
  watchGetVolumePathNameW = [&](LPCWSTR path, LPWSTR, DWORD size) {
    calls.emplace_back("volume");
    EXPECT_EQ(path, directory_.path());
    EXPECT_EQ(size, 260u);
  };
  watchGetVolumeInformationW = [&](LPCWSTR root, LPWSTR name, DWORD nameSize, LPDWORD serial, LPDWORD length,
                                   LPDWORD flags, LPWSTR system, DWORD systemSize) {
    calls.emplace_back("flags");
    EXPECT_EQ(std::wstring(root), directory_.path().substr(0, 3));  // "C:\"
    EXPECT_TRUE(name == nullptr && nameSize == 0 && serial == nullptr && length == nullptr);
    EXPECT_TRUE(flags != nullptr && system == nullptr && systemSize == 0);
  };
  watchGetNamedSecurityInfoW = [&](LPCWSTR path, SE_OBJECT_TYPE type, SECURITY_INFORMATION parts, PSID* owner,
                                   PSID* group, PACL* list, PACL* audit, PSECURITY_DESCRIPTOR* descriptor) {
    calls.emplace_back("security");
    EXPECT_EQ(path, directory_.path());
    EXPECT_EQ(type, SE_FILE_OBJECT);
    EXPECT_EQ(parts, 5u);
    EXPECT_TRUE(owner != nullptr && list != nullptr && descriptor != nullptr);
    EXPECT_TRUE(group == nullptr && audit == nullptr);
  };

  EXPECT_TRUE(verify());

  EXPECT_EQ(calls, (std::vector<std::string>{"volume", "flags", "security"}));
  EXPECT_EQ(replaced_.size(), 0u);
  EXPECT_EQ(created_.size(), 0u);
}

TEST_F(PrivateDirectoryCallsTest, aDriftedListIsReplacedByExactlyTheseBytes) {
  keepAs(user_, drifted_);

  EXPECT_TRUE(verify());

  expectOneReplacement(0x80000004u, {}, twoEntries_);
}

TEST_F(PrivateDirectoryCallsTest, forTheLocalSystemAccountOneEntryIsRightAndTwoAreReplaced) {
  runAsLocalSystem();
  const SystemBytes one = listBytes({systemSidBytes});
  keepAs(systemSidBytes, one);
  EXPECT_TRUE(verify());
  EXPECT_EQ(replaced_.size(), 0u);

  keepAs(systemSidBytes, listBytes({systemSidBytes, systemSidBytes}));
  EXPECT_TRUE(verify());

  expectOneReplacement(0x80000004u, {}, one);
}

TEST_F(PrivateDirectoryCallsTest, membershipIsAskedOfTheThreadsOwnTokenAndOwnershipTakenBeforeTheList) {
  keepAs(administratorsSidBytes, drifted_);
  watchCheckTokenMembership = [](HANDLE token, PSID sid, PBOOL) {
    EXPECT_EQ(token, nullptr);
    EXPECT_EQ(sidAt(sid), administratorsSidBytes);
  };
  fakeCheckTokenMembership = [](PBOOL isMember) {
    *isMember = TRUE;
    return TRUE;
  };

  EXPECT_TRUE(verify());

  ASSERT_EQ(replaced_.size(), 2u);
  expectReplacement(replaced_[0], 1u, user_, {});
  expectReplacement(replaced_[1], 0x80000004u, {}, twoEntries_);
}

TEST_F(PrivateDirectoryCallsTest, membershipIsAskedOnlyWhereItCounts) {
  watchCheckTokenMembership = [](HANDLE, PSID, PBOOL) { FAIL() << "the owner is not the administrators' group"; };

  EXPECT_TRUE(verify());
  keepAs(system_, wanted_);
  EXPECT_FALSE(verify());
}

TEST_F(PrivateDirectoryCallsTest, theUserIsAskedOfTheProcessTokenOnceForTheSizeAndOnceForTheData) {
  std::vector<DWORD> sizes;
  watchOpenProcessToken = [](HANDLE process, DWORD access, PHANDLE) {
    EXPECT_EQ(process, GetCurrentProcess());
    EXPECT_EQ(access, 8u);
  };
  watchGetTokenInformation = [&](HANDLE, TOKEN_INFORMATION_CLASS kind, LPVOID information, DWORD size, PDWORD) {
    EXPECT_EQ(kind, 1);
    EXPECT_EQ(information == nullptr, sizes.empty());
    sizes.push_back(size);
  };
  watchAllocateAndInitializeSid = [](PSID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD first, DWORD, DWORD, DWORD,
                                     DWORD, DWORD, DWORD, DWORD, PSID*) {
    EXPECT_EQ(bytesOf(authority, 6), (SystemBytes{0, 0, 0, 0, 0, 5}));
    EXPECT_EQ(count, 1);
    EXPECT_EQ(first, 18u);
  };

  EXPECT_TRUE(verify());

  ASSERT_EQ(sizes.size(), 2u);
  EXPECT_EQ(sizes[0], 0u);
  EXPECT_GE(sizes[1], sizeof(TOKEN_USER) + user_.size());
}

// --- What is asked once ---

TEST_F(PrivateDirectoryCallsTest, theAccountsAndTheVolumeAreAskedForOnceHoweverManyDirectories) {
  std::map<std::string, int> calls;
  watchOpenProcessToken = [&](auto...) { ++calls["token"]; };
  watchAllocateAndInitializeSid = [&](auto...) { ++calls["system"]; };
  watchGetVolumePathNameW = [&](auto...) { ++calls["volume"]; };
  watchGetVolumeInformationW = [&](auto...) { ++calls["flags"]; };

  for (const wchar_t* name : {L"root", L"root\\attempts", L"root\\slots"}) {
    EXPECT_TRUE(createPrivateDirectory(directory_ / name));
    EXPECT_TRUE(createPrivateDirectory(directory_ / name));
  }

  EXPECT_EQ(calls, (std::map<std::string, int>{{"token", 1}, {"system", 1}, {"volume", 3}, {"flags", 1}}));
}

TEST_F(PrivateDirectoryCallsTest, eachVolumeIsAskedForItself) {
  std::vector<std::wstring> asked;
  fakeGetVolumePathNameW = [&](LPCWSTR path, LPWSTR volume) {
    std::wcscpy(volume, path == directory_ / L"mounted" ? L"M:\\" : L"L:\\");
    return TRUE;
  };
  watchGetVolumeInformationW = [&](LPCWSTR root, auto...) { asked.emplace_back(root); };
  for (const wchar_t* name : {L"plain", L"mounted"}) reallyCreateDirectory((directory_ / name).c_str());

  for (const wchar_t* name : {L"plain", L"mounted", L"mounted", L"plain"}) {
    EXPECT_TRUE(createPrivateDirectory(directory_ / name));
  }

  EXPECT_EQ(asked, (std::vector<std::wstring>{L"L:\\", L"M:\\", L"L:\\"}));
}

TEST_F(PrivateDirectoryCallsTest, anAccountThatCouldNotBeToldIsAskedForAgain) {
  const std::function<void()> breaks[] = {
      [] { fakeOpenProcessToken = [] { return FALSE; }; },
      [] { fakeAllocateAndInitializeSid = [] { return FALSE; }; },
      [] { fakeCreateWellKnownSid = [] { return FALSE; }; },
  };
  for (const auto& breakIt : breaks) {
    resetStateRootForTests();
    breakIt();
    EXPECT_FALSE(verify());

    fakeOpenProcessToken = nullptr, fakeAllocateAndInitializeSid = nullptr, fakeCreateWellKnownSid = nullptr;
    EXPECT_TRUE(verify());
  }
}

// --- What is borrowed is given back ---

DWORD handleCount() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return count;
}

TEST_F(PrivateDirectoryCallsTest, identifiersDescriptorsAndHandlesAreReleasedOnEveryPath) {
  struct Case {
    const char* why;
    std::function<void()> prepare;
    bool accepted;
  };
  const Case cases[] = {
      {"right", [&] { keepAs(user_, wanted_); }, true},
      {"reset", [&] { keepAs(user_, drifted_); }, true},
      {"not reset", [&] { keepAs(user_, drifted_), setResult_ = ERROR_ACCESS_DENIED; }, false},
      {"foreign", [&] { keepAs(system_, wanted_); }, false},
      {"no token", [] { fakeOpenProcessToken = [] { return FALSE; }; }, false},
      {"no user", [] { fakeGetTokenInformation = [](LPVOID, DWORD, PDWORD) { return FALSE; }; }, false},
      {"no system account", [] { fakeAllocateAndInitializeSid = [] { return FALSE; }; }, false},
      {"no administrators", [] { fakeCreateWellKnownSid = [] { return FALSE; }; }, false},
  };
  const DWORD before = handleCount();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    fakeOpenProcessToken = nullptr, fakeGetTokenInformation = nullptr;
    fakeAllocateAndInitializeSid = nullptr, fakeCreateWellKnownSid = nullptr;
    resetStateRootForTests();  // or what an earlier row was told would be known
    setResult_ = ERROR_SUCCESS;
    keepAs(user_, wanted_);
    c.prepare();
    std::map<void*, int> descriptors;  // by address: how often freed
    int sids = 0;
    const auto given = fakeGetNamedSecurityInfoW;
    fakeGetNamedSecurityInfoW = [&](PSID* owner, PACL* list, PSECURITY_DESCRIPTOR* descriptor) {
      const DWORD result = given(owner, list, descriptor);
      descriptors[*descriptor] = 0;
      return result;
    };
    watchLocalFree = [&](HLOCAL memory) {
      if (descriptors.contains(memory)) ++descriptors[memory];
    };
    watchAllocateAndInitializeSid = [&](auto...) {
      if (!fakeAllocateAndInitializeSid) ++sids;
    };
    watchFreeSid = [&](PSID) { --sids; };

    EXPECT_EQ(verify(), c.accepted);

    fakeGetNamedSecurityInfoW = given;
    watchLocalFree = nullptr;
    ASSERT_EQ(descriptors.size(), 1u);
    EXPECT_EQ(descriptors.begin()->second, 1);
    EXPECT_EQ(sids, 0);
  }
  EXPECT_EQ(handleCount(), before);
}

TEST_F(PrivateDirectoryCallsTest, nothingIsCreatedWhereAnIdentifierCannotBeHad) {
  const std::function<void()> breaks[] = {
      [] { fakeOpenProcessToken = [] { return FALSE; }; },
      [] { fakeGetTokenInformation = [](LPVOID, DWORD, PDWORD) { return FALSE; }; },
      [] { fakeAllocateAndInitializeSid = [] { return FALSE; }; },
  };
  for (const auto& breakIt : breaks) {
    fakeOpenProcessToken = nullptr, fakeGetTokenInformation = nullptr;
    resetStateRootForTests();
    breakIt();
    std::string error;

    EXPECT_FALSE(createPrivateDirectory(directory_ / L"root", &error));

    EXPECT_EQ(error, "");
    EXPECT_EQ(created_.size(), 0u);
  }
}

}  // namespace
}  // namespace launcher_stub::os
