#include <gtest/gtest.h>

#include "os/durable_file.h"
#include "tests/os/contract/contract_world.h"

namespace launcher_stub::os {
namespace {

using contract::World;
using Names = std::vector<std::wstring>;

const Names onlyTheTarget = {L"state.json"};

TEST(replaceFileDurably, createsAndReplacesWithExactlyTheseBytes) {
  World world;
  struct Case {
    const char* why;
    std::string contents;
  };
  const Case cases[] = {{"a new file", "{}"},
                        {"another, longer one", std::string(5'000, 'y')},
                        {"the largest", std::string(65'536, 'x')},
                        {"a shorter one leaves nothing of the longer", "short"},
                        {"nothing at all", ""},
                        {"bytes that a text file would change", std::string("\xEF\xBB\xBF\0\r\n\x1A\n\xFF", 9)}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_TRUE(replaceFileDurably(world / L"state.json", c.contents));
    EXPECT_EQ(world.readFile(world / L"state.json"), c.contents);
    EXPECT_EQ(world.namesIn(world.directory()), onlyTheTarget) << "no temporary file is left";
  }
}

TEST(replaceFileDurably, refusesOneByteTooManyAndWritesNothing) {
  World world;
  EXPECT_FALSE(replaceFileDurably(world / L"state.json", std::string(65'537, 'x')));
  EXPECT_EQ(world.namesIn(world.directory()), Names{});

  world.writeFile(world / L"state.json", "old");
  EXPECT_FALSE(replaceFileDurably(world / L"state.json", std::string(65'537, 'x')));
  EXPECT_EQ(world.readFile(world / L"state.json"), "old");
  EXPECT_EQ(world.namesIn(world.directory()), onlyTheTarget);
}

TEST(replaceFileDurably, failsAtOnceWhereNoFileCanBe) {
  World world;
  world.writeFile(world / L"file", "kept");
  struct Case {
    const char* why;
    std::wstring target;
  };
  const Case cases[] = {{"the directory is missing", world / L"none\\state.json"},
                        {"a name that no file can have", world / L"a|b"},
                        {"a file stands where the directory should", world / L"file\\state.json"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const std::uint64_t start = world.now();
    EXPECT_FALSE(replaceFileDurably(c.target, "{}"));
    EXPECT_LT(world.now() - start, 1'000u);
    EXPECT_EQ(world.namesIn(world.directory()), Names{L"file"});
    EXPECT_EQ(world.readFile(world / L"file"), "kept");
  }
}

TEST(replaceFileDurably, outlastsAReaderThatLetsGoInTime) {
  struct Case {
    const char* why;
    contract::Sharing sharing;
  };
  const Case cases[] = {{"shares nothing", contract::shareNothing},
                        {"shares all but removing", contract::shareAllButRemoving},
                        {"shares everything", contract::shareEverything}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    World world;
    world.writeFile(world / L"state.json", "old");
    const std::uint64_t start = world.now();
    world.holdFor(600, world / L"state.json", c.sharing);
    EXPECT_TRUE(replaceFileDurably(world / L"state.json", "new"));
    const std::uint64_t elapsed = world.now() - start;
    EXPECT_TRUE(c.sharing.remove || elapsed + World::clockStepMs >= 600u) << "not before: " << elapsed;
    EXPECT_EQ(world.namesIn(world.directory()), onlyTheTarget);
    EXPECT_EQ(world.readFile(world / L"state.json"), "new");
  }
}

TEST(replaceFileDurably, givesUpAfterTwoSecondsAndKeepsTheOldDocument) {
  World world;
  world.writeFile(world / L"state.json", "old");
  world.hold(world / L"state.json", contract::shareAllButRemoving);
  const std::uint64_t start = world.now();

  EXPECT_FALSE(replaceFileDurably(world / L"state.json", "new"));

  const std::uint64_t elapsed = world.now() - start;
  EXPECT_GE(elapsed + World::clockStepMs, 2'000u);
  EXPECT_LT(elapsed, 3'500u);
  EXPECT_EQ(world.readFile(world / L"state.json"), "old");
  EXPECT_EQ(world.namesIn(world.directory()), onlyTheTarget);
}

// A target that is open with removing shared, or read-only, is replaced by some systems and file systems and refused by
// others: Windows refuses the second and, unless it renames in the POSIX way, the first; Wine replaces both. Promised
// is that the result tells which, that there is one whole document, and that no temporary file stays.
TEST(replaceFileDurably, tellsTheTruthWhereTheSystemMayRefuse) {
  struct Case {
    const char* why;
    bool held;
    bool readOnly;
  };
  const Case cases[] = {{"held open, with removing shared", true, false}, {"read-only", false, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    World world;
    world.writeFile(world / L"state.json", "old");
    if (c.readOnly) world.makeReadOnly(world / L"state.json");
    if (c.held) world.hold(world / L"state.json", contract::shareEverything);
    const bool replaced = replaceFileDurably(world / L"state.json", "new");
    EXPECT_EQ(world.readFile(world / L"state.json"), replaced ? "new" : "old");
    EXPECT_EQ(world.namesIn(world.directory()), onlyTheTarget);
  }
}

TEST(replaceFileDurably, neverTakesThePlaceOfADirectory) {
  World world;
  world.makeDirectory(world / L"state.json");
  world.writeFile(world / L"state.json\\inside", "kept");
  const std::uint64_t start = world.now();

  EXPECT_FALSE(replaceFileDurably(world / L"state.json", "new"));

  EXPECT_LT(world.now() - start, 3'500u);
  EXPECT_EQ(world.readFile(world / L"state.json\\inside"), "kept");
  EXPECT_EQ(world.namesIn(world.directory()), onlyTheTarget);
}

TEST(replaceFileDurably, leavesTheDirectorysOtherFilesAlone) {
  World world;
  world.writeFile(world / L"state.json.tmp-1-0", "of a process that died");
  world.writeFile(world / L"state.json2", "another's");

  EXPECT_TRUE(replaceFileDurably(world / L"state.json", "new"));

  EXPECT_EQ(world.namesIn(world.directory()), (Names{L"state.json", L"state.json.tmp-1-0", L"state.json2"}));
}

}  // namespace
}  // namespace launcher_stub::os
