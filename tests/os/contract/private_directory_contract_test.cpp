#include <gtest/gtest.h>

#include "os/state_root.h"
#include "tests/os/contract/contract_world.h"

// Only whether a directory is accepted is asked here. Wine keeps no access lists on disk and takes every existing
// directory's list for a drifted one, which it says in a line; so lines are recorded, to keep the output clean, and not
// looked at.

namespace launcher_stub::os {
namespace {

using contract::World;
using Names = std::vector<std::wstring>;

class PrivateDirectoryContract : public testing::Test {
 protected:
  void SetUp() override { world.recordLines(); }
  World world;
};

TEST_F(PrivateDirectoryContract, isCreatedWithAllMissingAncestors) {
  std::string error = "untouched";

  EXPECT_TRUE(createPrivateDirectory(world / L"one\\two/three", &error));

  EXPECT_EQ(world.namesIn(world.directory()), Names{L"one"});
  EXPECT_EQ(world.namesIn(world / L"one"), Names{L"two"});
  EXPECT_EQ(world.namesIn(world / L"one\\two"), Names{L"three"});
  EXPECT_EQ(world.namesIn(world / L"one\\two\\three"), Names{});
  EXPECT_EQ(error, "untouched");
  EXPECT_EQ(world.lines(), std::vector<std::string>{}) << "a new directory gives no cause for a notice";
}

TEST_F(PrivateDirectoryContract, isAcceptedWhereItExists) {
  ASSERT_TRUE(createPrivateDirectory(world / L"root"));
  world.writeFile(world / L"root\\state.json", "kept");
  world.makeDirectory(world / L"other");  // made by somebody else
  std::string error = "untouched";

  EXPECT_TRUE(createPrivateDirectory(world / L"root", &error));
  EXPECT_TRUE(createPrivateDirectory(world / L"root\\below", &error));
  EXPECT_TRUE(createPrivateDirectory(world / L"other", &error));
  EXPECT_TRUE(verifyPrivateDirectory(world / L"root", &error));

  EXPECT_EQ(world.readFile(world / L"root\\state.json"), "kept");
  EXPECT_EQ(error, "untouched");
}

TEST_F(PrivateDirectoryContract, isCreatedAgainAfterItsRemoval) {
  ASSERT_TRUE(createPrivateDirectory(world / L"root\\attempts"));
  world.makeDirectory(world / L"root\\attempts\\nonce");

  EXPECT_TRUE(createPrivateDirectory(world / L"root\\attempts\\nonce"));
  EXPECT_TRUE(createPrivateDirectory(world / L"root\\attempts\\nonce")) << "as often as it is asked for";

  EXPECT_EQ(world.namesIn(world / L"root\\attempts"), Names{L"nonce"});
}

TEST_F(PrivateDirectoryContract, mayBeNamedWithASeparatorBehindIt) {
  EXPECT_TRUE(createPrivateDirectory(world / L"root\\"));
  EXPECT_EQ(world.namesIn(world.directory()), Names{L"root"});
}

TEST_F(PrivateDirectoryContract, isNotVerifiedWhereThereIsNone) {
  std::string error = "untouched";
  EXPECT_FALSE(verifyPrivateDirectory(world / L"none", &error));
  EXPECT_EQ(error, "untouched");
}

TEST_F(PrivateDirectoryContract, isRefusedWhereAFileIsInTheWay) {
  world.writeFile(world / L"file", "kept");
  struct Case {
    const char* why;
    std::wstring path;
  };
  const Case cases[] = {{"a file of that name", world / L"file"},
                        {"a file for its parent", world / L"file\\below"},
                        {"a file further above", world / L"file\\below\\deeper"},
                        {"a name that no directory can have", world / L"a|b"},
                        {"no path at all", L""}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    std::string error = "untouched";
    EXPECT_FALSE(createPrivateDirectory(c.path, &error));
    EXPECT_EQ(error, "untouched");
  }
  EXPECT_EQ(world.readFile(world / L"file"), "kept");
  EXPECT_EQ(world.namesIn(world.directory()), Names{L"file"});
}

}  // namespace
}  // namespace launcher_stub::os
