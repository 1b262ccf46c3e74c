#include "os/private_list.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <sddl.h>

#include <memory>

// Wine keeps no access-control lists on disk, so the rules are tested on descriptors in memory, which the system builds
// from their textual form.

namespace launcher_stub::os {
namespace {

constexpr wchar_t userText[] = L"S-1-5-21-1004336348-1177238915-682003330-1001";

Sid sidOf(const wchar_t* text) {
  void* raw = nullptr;
  if (!ConvertStringSidToSidW(text, &raw)) return {};
  const auto* bytes = static_cast<const std::uint8_t*>(raw);
  Sid sid(bytes, bytes + GetLengthSid(raw));
  LocalFree(raw);
  return sid;
}

std::wstring textOf(const Sid& sid) {
  wchar_t* raw = nullptr;
  if (!ConvertSidToStringSidW(const_cast<std::uint8_t*>(sid.data()), &raw)) return L"(none)";
  std::wstring text = raw;
  LocalFree(raw);
  return text;
}

// A descriptor made by the system; `{user}` in the text stands for the user's identifier.
class Descriptor {
 public:
  explicit Descriptor(std::wstring text) {
    for (std::size_t at = text.find(L"{user}"); at != std::wstring::npos; at = text.find(L"{user}")) {
      text.replace(at, 6, userText);
    }
    isMade_ = ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &raw_, nullptr);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { LocalFree(raw_); }

  bool isMade() const { return isMade_ != FALSE; }
  const void* list() const {
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    ACL* list = nullptr;
    return GetSecurityDescriptorDacl(raw_, &present, &list, &defaulted) && present ? list : nullptr;
  }
  std::uint16_t control() const {
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    GetSecurityDescriptorControl(raw_, &control, &revision);
    return control;
  }

 private:
  void* raw_ = nullptr;
  BOOL isMade_ = FALSE;
};

TEST(sids, areTheWellKnownOnes) {
  EXPECT_EQ(textOf(localSystemSid()), L"S-1-5-18");
  EXPECT_EQ(textOf(administratorsSid()), L"S-1-5-32-544");
  EXPECT_EQ(localSystemSid().size(), 12u);
  EXPECT_EQ(administratorsSid().size(), 16u);
}

TEST(currentUserSid, isThatOfTheProcessToken) {
  const Sid user = currentUserSid();
  ASSERT_FALSE(user.empty());
  EXPECT_EQ(textOf(user).rfind(L"S-1-5-", 0), 0u) << std::string(user.begin(), user.end());

  wchar_t name[256] = {};
  DWORD size = 256;
  ASSERT_TRUE(GetUserNameW(name, &size));
  std::uint8_t found[SECURITY_MAX_SID_SIZE] = {};
  DWORD foundSize = sizeof found;
  wchar_t domain[256] = {};
  DWORD domainSize = 256;
  SID_NAME_USE use{};
  ASSERT_TRUE(LookupAccountNameW(nullptr, name, found, &foundSize, domain, &domainSize, &use));
  EXPECT_TRUE(sameSid(user, found));
}

TEST(sameSid, comparesWholeIdentifiers) {
  const Sid user = sidOf(userText);
  EXPECT_TRUE(sameSid(user, sidOf(userText).data()));
  EXPECT_FALSE(sameSid(user, sidOf(L"S-1-5-21-1004336348-1177238915-682003330-1002").data()));
  EXPECT_FALSE(sameSid(user, localSystemSid().data()));
  EXPECT_FALSE(sameSid(user, nullptr));
  EXPECT_FALSE(sameSid({}, user.data()));
}

// Byte by byte, so that nothing else of the layout can slip in.
TEST(buildPrivateList, admitsUserThenSystemInExactlyTheseBytes) {
  const Sid user = sidOf(userText);
  const Sid system = localSystemSid();
  ASSERT_EQ(user.size(), 28u);

  const SystemBytes list = buildPrivateList(user, system);

  SystemBytes expected = {2, 0, 64, 0, 2, 0, 0, 0};  // revision 2, 24 + 28 + 12 bytes, two entries
  for (const Sid& sid : {user, system}) {
    const auto size = static_cast<std::uint8_t>(8 + sid.size());
    const SystemBytes header = {0, 3, size, 0, 0xFF, 0x01, 0x1F, 0x00};  // allow, inherited by both kinds, 0x1F01FF
    expected.insert(expected.end(), header.begin(), header.end());
    expected.insert(expected.end(), sid.begin(), sid.end());
  }
  EXPECT_EQ(list, expected);
}

TEST(buildPrivateList, hasOneEntryForTheSystemAccountItself) {
  const SystemBytes list = buildPrivateList(localSystemSid(), localSystemSid());

  ASSERT_EQ(list.size(), 16u + 12u);
  EXPECT_EQ(list[2], 28);  // its size
  EXPECT_EQ(list[4], 1);   // entries
}

TEST(buildPrivateList, isEmptyWithoutIdentifiers) {
  EXPECT_TRUE(buildPrivateList({}, localSystemSid()).empty());
  EXPECT_TRUE(buildPrivateList(localSystemSid(), {}).empty());
}

TEST(buildPrivateDescriptor, isOwnedProtectedAndHoldsTheList) {
  const Sid user = sidOf(userText);
  const SystemBytes list = buildPrivateList(user, localSystemSid());
  SystemBytes descriptor = buildPrivateDescriptor(user, list);
  ASSERT_TRUE(IsValidSecurityDescriptor(descriptor.data()));

  wchar_t* text = nullptr;
  ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(
      descriptor.data(), SDDL_REVISION_1, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &text, nullptr));
  const std::wstring wide = text;
  LocalFree(text);
  EXPECT_EQ(wide, std::wstring(L"O:") + userText + L"D:P(A;OICI;FA;;;" + userText + L")(A;OICI;FA;;;SY)");

  SECURITY_DESCRIPTOR_CONTROL control = 0;
  DWORD revision = 0;
  ASSERT_TRUE(GetSecurityDescriptorControl(descriptor.data(), &control, &revision));
  EXPECT_EQ(revision, 1u);
  EXPECT_EQ(control, SE_DACL_PRESENT | SE_DACL_PROTECTED | SE_SELF_RELATIVE) << "nothing is defaulted";
}

TEST(buildPrivateDescriptor, isEmptyWithoutOwnerOrList) {
  EXPECT_TRUE(buildPrivateDescriptor({}, buildPrivateList(localSystemSid(), localSystemSid())).empty());
  EXPECT_TRUE(buildPrivateDescriptor(localSystemSid(), {}).empty());
}

TEST(isPrivateList, acceptsTheProtectedTwoEntriesAndNothingElse) {
  struct Case {
    const char* why;
    std::wstring descriptor;
    bool accepted;
  };
  const Case cases[] = {
      {"the private list", L"D:P(A;OICI;FA;;;{user})(A;OICI;FA;;;SY)", true},
      {"not protected", L"D:(A;OICI;FA;;;{user})(A;OICI;FA;;;SY)", false},
      {"the other order", L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;{user})", false},
      {"an extra entry", L"D:P(A;OICI;FA;;;{user})(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)", false},
      {"an extra entry in front", L"D:P(A;OICI;FR;;;WD)(A;OICI;FA;;;{user})(A;OICI;FA;;;SY)", false},
      {"only the user", L"D:P(A;OICI;FA;;;{user})", false},
      {"only the system", L"D:P(A;OICI;FA;;;SY)", false},
      {"empty: nobody is admitted", L"D:P", false},
      {"denied instead of allowed", L"D:P(D;OICI;FA;;;{user})(A;OICI;FA;;;SY)", false},
      {"denied instead of allowed, the second", L"D:P(A;OICI;FA;;;{user})(D;OICI;FA;;;SY)", false},
      {"less access", L"D:P(A;OICI;FR;;;{user})(A;OICI;FA;;;SY)", false},
      {"less access for the system", L"D:P(A;OICI;FA;;;{user})(A;OICI;FR;;;SY)", false},
      {"one right less", L"D:P(A;OICI;0x1f01fe;;;{user})(A;OICI;FA;;;SY)", false},
      {"one right more", L"D:P(A;OICI;0x11f01ff;;;{user})(A;OICI;FA;;;SY)", false},
      {"the generic name of the same access", L"D:P(A;OICI;GA;;;{user})(A;OICI;FA;;;SY)", false},
      {"not inherited by files", L"D:P(A;CI;FA;;;{user})(A;OICI;FA;;;SY)", false},
      {"not inherited by directories", L"D:P(A;OI;FA;;;{user})(A;OICI;FA;;;SY)", false},
      {"not inherited at all", L"D:P(A;;FA;;;{user})(A;;FA;;;SY)", false},
      {"not handed on further", L"D:P(A;OICINP;FA;;;{user})(A;OICI;FA;;;SY)", false},
      {"inherited entry", L"D:P(A;OICIID;FA;;;{user})(A;OICI;FA;;;SY)", false},
      {"both entries inherited", L"D:P(A;OICIID;FA;;;{user})(A;OICIID;FA;;;SY)", false},
      {"protected, and once made by inheritance", L"D:PAI(A;OICI;FA;;;{user})(A;OICI;FA;;;SY)", true},
      {"made by inheritance, not protected", L"D:AI(A;OICI;FA;;;{user})(A;OICI;FA;;;SY)", false},
      {"for those below only", L"D:P(A;OICI;FA;;;{user})(A;OICIIO;FA;;;SY)", false},
      {"another user of the same size", L"D:P(A;OICI;FA;;;S-1-5-21-1-2-3-4)(A;OICI;FA;;;SY)", false},
      {"the next user", L"D:P(A;OICI;FA;;;S-1-5-21-1004336348-1177238915-682003330-1002)(A;OICI;FA;;;SY)", false},
      {"another service account of the same size", L"D:P(A;OICI;FA;;;{user})(A;OICI;FA;;;LS)", false},
      {"another account of another size", L"D:P(A;OICI;FA;;;{user})(A;OICI;FA;;;BA)", false},
      {"the user twice", L"D:P(A;OICI;FA;;;{user})(A;OICI;FA;;;{user})", false},
  };
  const SystemBytes wanted = buildPrivateList(sidOf(userText), localSystemSid());
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const Descriptor existing(c.descriptor);
    ASSERT_TRUE(existing.isMade());
    EXPECT_EQ(isPrivateList(existing.list(), existing.control(), wanted), c.accepted);
  }
}

TEST(isPrivateList, refusesAMissingList) {
  const SystemBytes wanted = buildPrivateList(sidOf(userText), localSystemSid());
  EXPECT_FALSE(isPrivateList(nullptr, SE_DACL_PRESENT | SE_DACL_PROTECTED, wanted));
}

ACL* asAcl(SystemBytes& bytes) { return reinterpret_cast<ACL*>(bytes.data()); }

// Also the types of entries that have no textual form of this size.
TEST(isPrivateList, refusesEachOtherValueOfEachBitOfTheEntriesAndTheirNumber) {
  const SystemBytes wanted = buildPrivateList(sidOf(userText), localSystemSid());
  ASSERT_TRUE(isPrivateList(wanted.data(), SE_DACL_PROTECTED, wanted));
  int refused = 0;
  for (std::size_t at = 4; at < wanted.size(); ++at) {  // in front of these: revision and size of the list
    if (at == 6 || at == 7) continue;                   // a gap behind the number of entries
    for (int bit = 0; bit < 8; ++bit) {
      SystemBytes existing = wanted;
      existing[at] = static_cast<std::uint8_t>(existing[at] ^ (1 << bit));
      EXPECT_FALSE(isPrivateList(existing.data(), SE_DACL_PROTECTED, wanted)) << "byte " << at << ", bit " << bit;
      ++refused;
    }
  }
  EXPECT_EQ(refused, 8 * (2 + 36 + 20));
}

// A list may be longer than its entries, and of the revision that also allows entries for objects: both are the same
// access for the same accounts.
TEST(isPrivateList, judgesTheEntriesAndNotTheRoomAroundThem) {
  const Sid user = sidOf(userText);
  Sid userCopy = user;
  Sid system = localSystemSid();
  const SystemBytes wanted = buildPrivateList(user, system);
  for (const DWORD revision : {DWORD{ACL_REVISION}, DWORD{ACL_REVISION_DS}}) {
    SystemBytes existing(256);
    ASSERT_TRUE(InitializeAcl(asAcl(existing), 256, revision));
    for (Sid* sid : {&userCopy, &system}) {
      EXPECT_FALSE(isPrivateList(existing.data(), SE_DACL_PROTECTED, wanted));
      ASSERT_TRUE(AddAccessAllowedAceEx(asAcl(existing), revision, 3, 0x1F01FF, sid->data()));
    }

    EXPECT_TRUE(isPrivateList(existing.data(), SE_DACL_PROTECTED, wanted));

    ASSERT_TRUE(AddAccessAllowedAceEx(asAcl(existing), revision, 3, 0x1F01FF, system.data()));
    EXPECT_FALSE(isPrivateList(existing.data(), SE_DACL_PROTECTED, wanted)) << "an entry of ours twice";
  }
}

TEST(isPrivateList, judgesWhatADescriptorSaysOfItsList) {
  struct Case {
    const char* why;
    bool present;
    bool isNull;
    SECURITY_DESCRIPTOR_CONTROL bits;  // of those below
    bool accepted;
  };
  constexpr SECURITY_DESCRIPTOR_CONTROL settable =
      SE_DACL_PROTECTED | SE_SACL_PROTECTED | SE_DACL_AUTO_INHERITED | SE_DACL_AUTO_INHERIT_REQ;
  const Case cases[] = {
      {"there and protected", true, false, SE_DACL_PROTECTED, true},
      {"with all other bits as well", true, false, settable, true},
      {"with all other bits and not protected", true, false, settable & ~SE_DACL_PROTECTED, false},
      {"no list in the descriptor", false, true, SE_DACL_PROTECTED, false},
      {"a null list: everybody may do everything", true, true, SE_DACL_PROTECTED, false},
  };
  SystemBytes wanted = buildPrivateList(sidOf(userText), localSystemSid());
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SECURITY_DESCRIPTOR descriptor{};
    ASSERT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    ASSERT_TRUE(SetSecurityDescriptorDacl(&descriptor, c.present, c.isNull ? nullptr : asAcl(wanted), FALSE));
    ASSERT_TRUE(SetSecurityDescriptorControl(&descriptor, settable, c.bits));
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    ACL* list = nullptr;
    ASSERT_TRUE(GetSecurityDescriptorDacl(&descriptor, &present, &list, &defaulted));
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    ASSERT_TRUE(GetSecurityDescriptorControl(&descriptor, &control, &revision));

    EXPECT_EQ(isPrivateList(present ? list : nullptr, control, wanted), c.accepted);
  }
}

TEST(isPrivateList, expectsOneEntryWhereTheUserIsTheSystem) {
  const SystemBytes wanted = buildPrivateList(localSystemSid(), localSystemSid());
  const Descriptor one(L"D:P(A;OICI;FA;;;SY)");
  const Descriptor two(L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;SY)");
  EXPECT_TRUE(isPrivateList(one.list(), one.control(), wanted));
  EXPECT_FALSE(isPrivateList(two.list(), two.control(), wanted));
  const Descriptor open(L"D:(A;OICI;FA;;;SY)");
  EXPECT_FALSE(isPrivateList(open.list(), open.control(), wanted));
  const SystemBytes forAUser = buildPrivateList(sidOf(userText), localSystemSid());
  EXPECT_FALSE(isPrivateList(one.list(), one.control(), forAUser));
}

TEST(judgeOwner, acceptsTheUserAndTheUsersOwnAdministrators) {
  struct Case {
    const char* why;
    OwnerFacts facts;
    OwnerVerdict verdict;
  };
  const Case cases[] = {
      {"the user's own", {true, false, std::nullopt}, OwnerVerdict::accepted},
      {"another account's", {false, false, std::nullopt}, OwnerVerdict::foreign},
      {"another account's, seen by an administrator", {false, false, true}, OwnerVerdict::foreign},
      {"the administrators', seen by a member", {false, true, true}, OwnerVerdict::takeOver},
      {"the administrators', seen by another", {false, true, false}, OwnerVerdict::foreign},
      {"the administrators', membership not known", {false, true, std::nullopt}, OwnerVerdict::unknown},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(judgeOwner(c.facts), c.verdict);
  }
}

}  // namespace
}  // namespace launcher_stub::os
