#include <gtest/gtest.h>
#include <windows.h>

#include "os/messages.h"
#include "os/private_list.h"
#include "os/state_root.h"
#include "tests/support/standard_error_capture.h"
#include "tests/support/windows_temp_directory.h"

// What a directory's owner and list are judged by is tested on descriptors in memory (private_list). Here the calls run
// against the file system. Windows keeps the list, so an existing directory that was created here passes in silence.
// Wine keeps none: it makes up one from the host's permissions, which is never the private one, so that every look at
// an existing directory finds a list to reset, each time anew.

namespace launcher_stub::os {
namespace {

using tests::StandardErrorCapture;
using tests::TempDirectory;

const std::string resetLine = std::string(messages::listReset) + "\n";

std::string expectedNotice() { return tests::runsUnderWine() ? resetLine : std::string(); }

class PrivateDirectoryTest : public testing::Test {
 protected:
  void SetUp() override { resetStateRootForTests(); }
  const TempDirectory directory;
};

TEST_F(PrivateDirectoryTest, isCreatedWithAllMissingAncestors) {
  const StandardErrorCapture capture;
  const std::wstring path = directory / L"one\\two/three";
  std::string error = "untouched";

  EXPECT_TRUE(createPrivateDirectory(path, &error));

  EXPECT_TRUE(tests::exists(path));
  EXPECT_EQ(error, "untouched");
  EXPECT_EQ(capture.text(), "") << "a new directory gives no cause for a notice";
}

TEST_F(PrivateDirectoryTest, isVerifiedWhereItExists) {
  const StandardErrorCapture capture;
  ASSERT_TRUE(createPrivateDirectory(directory / L"root"));
  tests::writeFile(directory / L"root\\boot-v1.json", "kept");

  EXPECT_TRUE(createPrivateDirectory(directory / L"root"));

  EXPECT_EQ(tests::readFile(directory / L"root\\boot-v1.json"), "kept");
  EXPECT_EQ(capture.text(), expectedNotice());
}

TEST_F(PrivateDirectoryTest, mayBeNamedWithATrailingSeparator) {
  const StandardErrorCapture capture;
  EXPECT_TRUE(createPrivateDirectory(directory / L"root\\"));
  EXPECT_TRUE(tests::exists(directory / L"root"));
}

TEST_F(PrivateDirectoryTest, listsAreResetWithOneLineHoweverManyThereAre) {
  const StandardErrorCapture capture;
  for (const wchar_t* name : {L"a", L"b", L"c"}) {
    tests::makeDirectory(directory / name);  // with what it inherits: not the private list
    EXPECT_TRUE(verifyPrivateDirectory(directory / name));
  }
  EXPECT_EQ(capture.text(), resetLine);
}

TEST_F(PrivateDirectoryTest, isRefusedWhereAFileHasItsName) {
  const StandardErrorCapture capture;
  tests::writeFile(directory / L"file", "kept");
  std::string error = "untouched";

  EXPECT_FALSE(createPrivateDirectory(directory / L"file", &error));
  EXPECT_FALSE(createPrivateDirectory(directory / L"file\\below", &error));

  EXPECT_EQ(tests::readFile(directory / L"file"), "kept");
  EXPECT_EQ(error, "untouched");
  EXPECT_EQ(capture.text(), "");
}

TEST_F(PrivateDirectoryTest, isRefusedWhereItsStatusCannotBeTaken) {
  const StandardErrorCapture capture;
  EXPECT_FALSE(createPrivateDirectory(directory / L"a|b"));
  EXPECT_FALSE(createPrivateDirectory(L""));
  EXPECT_EQ(capture.text(), "");
}

TEST_F(PrivateDirectoryTest, isNotVerifiedWhereThereIsNone) {
  const StandardErrorCapture capture;
  std::string error = "untouched";
  EXPECT_FALSE(verifyPrivateDirectory(directory / L"none", &error));
  EXPECT_EQ(error, "untouched");
  EXPECT_EQ(capture.text(), "");
}

// Under Wine a directory of another account of the host stands in. On Windows making one takes a second account.
TEST_F(PrivateDirectoryTest, ofAnotherAccountIsRefusedAndLeftAlone) {
  tests::makeDirectory(directory / L"foreign");
  if (!tests::runHostProgram(L"/bin/chown", {L"12345", tests::hostPath(directory / L"foreign")})) {
    GTEST_SKIP() << "giving a directory away takes Wine and the host's administrator";
  }
  const StandardErrorCapture capture;
  std::string error;

  EXPECT_FALSE(verifyPrivateDirectory(directory / L"foreign", &error));
  EXPECT_EQ(error, "state root belongs to another account");
  EXPECT_FALSE(createPrivateDirectory(directory / L"foreign")) << "also where no text is asked for";

  EXPECT_EQ(capture.text(), "") << "its list is not touched";
}

}  // namespace
}  // namespace launcher_stub::os
