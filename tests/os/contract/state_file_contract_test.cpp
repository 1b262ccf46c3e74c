#include <gtest/gtest.h>

#include "os/durable_file.h"
#include "tests/os/contract/contract_world.h"

namespace launcher_stub::os {
namespace {

using contract::World;

TEST(readStateFile, readsUpTo65536BytesAndNoMore) {
  World world;
  struct Case {
    const char* why;
    std::size_t size;
    bool accepted;
  };
  const Case cases[] = {{"empty", 0, true},
                        {"one byte", 1, true},
                        {"the largest", 65'536, true},
                        {"one byte too many", 65'537, false},
                        {"far too many", 200'000, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const std::string written(c.size, 'x');
    world.writeFile(world / L"state.json", written);
    std::string contents = "before";
    EXPECT_EQ(readStateFile(world / L"state.json", contents), c.accepted);
    EXPECT_EQ(contents, c.accepted ? written : "before");
  }
}

TEST(readStateFile, changesNoByte) {
  World world;
  const std::string bytes("\xEF\xBB\xBF{\r\n\x1A\0\xFF}", 10);
  world.writeFile(world / L"state.json", bytes);
  std::string contents;

  EXPECT_TRUE(readStateFile(world / L"state.json", contents));

  EXPECT_EQ(contents, bytes);
}

TEST(readStateFile, failsForWhatIsNoFileAndLeavesTheContentsAlone) {
  World world;
  world.makeDirectory(world / L"directory");
  world.writeFile(world / L"file", "x");
  struct Case {
    const char* why;
    std::wstring path;
  };
  const Case cases[] = {{"missing", world / L"none"},
                        {"its directory is missing", world / L"none\\below"},
                        {"a file stands where the directory should", world / L"file\\below"},
                        {"a name that no file can have", world / L"a|b"},
                        {"a directory", world / L"directory"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    std::string contents = "before";
    EXPECT_FALSE(readStateFile(c.path, contents));
    EXPECT_EQ(contents, "before");
  }
}

TEST(readStateFile, needsNoMoreThanReadingShared) {
  struct Case {
    const char* why;
    contract::Sharing sharing;
    bool readable;
  };
  const Case cases[] = {{"another shares nothing", contract::shareNothing, false},
                        {"another shares all but reading", contract::shareAllButReading, false},
                        {"another shares reading alone", contract::shareReading, true},
                        {"another shares all but removing", contract::shareAllButRemoving, true},
                        {"another shares everything", contract::shareEverything, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    World world;
    world.writeFile(world / L"state.json", "document");
    world.hold(world / L"state.json", c.sharing);
    std::string contents = "before";
    EXPECT_EQ(readStateFile(world / L"state.json", contents), c.readable);
    EXPECT_EQ(contents, c.readable ? "document" : "before");
  }
}

TEST(readStateFile, doesNotWaitForAFileThatIsHeld) {
  World world;
  world.writeFile(world / L"state.json", "document");
  world.hold(world / L"state.json", contract::shareNothing);
  std::string contents;
  const std::uint64_t start = world.now();

  EXPECT_FALSE(readStateFile(world / L"state.json", contents));

  EXPECT_LT(world.now() - start, 1'000u);
}

TEST(readStateFile, readsWhatIsReadOnlyAndWhatWasReplaced) {
  World world;
  world.writeFile(world / L"fixed", "fixed");
  world.makeReadOnly(world / L"fixed");
  ASSERT_TRUE(replaceFileDurably(world / L"replaced", "replaced"));
  std::string contents;

  EXPECT_TRUE(readStateFile(world / L"fixed", contents));
  EXPECT_EQ(contents, "fixed");
  EXPECT_TRUE(readStateFile(world / L"replaced", contents));
  EXPECT_EQ(contents, "replaced");
}

TEST(removeFile, isSatisfiedWhenTheFileIsGone) {
  World world;
  world.writeFile(world / L"pending", "x");
  EXPECT_TRUE(removeFile(world / L"pending"));
  EXPECT_FALSE(world.exists(world / L"pending"));

  EXPECT_TRUE(removeFile(world / L"pending")) << "there was none";
  EXPECT_TRUE(removeFile(world / L"none\\pending")) << "not even its directory";
}

TEST(removeFile, failsWhereTheFileStays) {
  struct Case {
    const char* why;
    contract::Sharing sharing;
  };
  const Case cases[] = {{"another shares nothing", contract::shareNothing},
                        {"another shares all but removing", contract::shareAllButRemoving}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    World world;
    world.writeFile(world / L"pending", "x");
    world.hold(world / L"pending", c.sharing);
    const std::uint64_t start = world.now();
    EXPECT_FALSE(removeFile(world / L"pending"));
    EXPECT_LT(world.now() - start, 1'000u) << "the caller decides about trying again";
    world.releaseAll();
    EXPECT_EQ(world.readFile(world / L"pending"), "x");
    EXPECT_TRUE(removeFile(world / L"pending")) << "free again";
  }
}

// The name may stay until the other lets go, as it does on older systems.
TEST(removeFile, succeedsWhereTheOtherSharesRemoving) {
  World world;
  world.writeFile(world / L"pending", "x");
  world.hold(world / L"pending", contract::shareEverything);

  EXPECT_TRUE(removeFile(world / L"pending"));

  world.releaseAll();
  EXPECT_FALSE(world.exists(world / L"pending"));
}

TEST(removeFile, removesNoDirectoryAndNothingReadOnly) {
  World world;
  world.makeDirectory(world / L"directory");
  world.writeFile(world / L"fixed", "x");
  world.makeReadOnly(world / L"fixed");

  EXPECT_FALSE(removeFile(world / L"directory"));
  EXPECT_FALSE(removeFile(world / L"fixed"));
  EXPECT_FALSE(removeFile(world / L"a|b")) << "a name that no file can have is no missing file";

  EXPECT_TRUE(world.exists(world / L"directory"));
  EXPECT_EQ(world.readFile(world / L"fixed"), "x");
}

}  // namespace
}  // namespace launcher_stub::os
