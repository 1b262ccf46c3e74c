#include "os/directory.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "os/clock.h"
#include "tests/os/contract/contract_world.h"

namespace launcher_stub::os {
namespace {

using contract::World;
using Names = std::vector<std::wstring>;

constexpr std::uint32_t errorFileNotFound = 2;
constexpr std::uint32_t errorPathNotFound = 3;
constexpr std::uint32_t errorSharingViolation = 32;

constexpr std::uint64_t someTime = 133'000'000'000'000'000;  // in 2022

// In the order of their names: the file system's own order is not promised.
std::vector<DirectoryEntry> sortedEntries(const std::wstring& path) {
  std::vector<DirectoryEntry> entries = listDirectory(path);
  std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  return entries;
}

TEST(listDirectory, namesFilesAndDirectoriesWithTheirTimes) {
  World world;
  world.makeDirectory(world / L"list");
  world.makeDirectory(world / L"list\\\u0416 dir");
  world.writeFile(world / L"list\\File.txt", "x");
  world.writeFile(world / L"list\\\u0416 dir\\below", "not listed");
  world.setLastWriteTime(world / L"list\\\u0416 dir", someTime);
  world.setLastWriteTime(world / L"list\\File.txt", someTime + 1);  // 100 ns later

  const std::vector<DirectoryEntry> entries = sortedEntries(world / L"list");

  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].name, L"File.txt");
  EXPECT_FALSE(entries[0].isDirectory);
  EXPECT_TRUE(entries[0].timeKnown);
  EXPECT_EQ(entries[0].lastWriteTime, someTime + 1);
  EXPECT_EQ(entries[1].name, L"\u0416 dir");
  EXPECT_TRUE(entries[1].isDirectory);
  EXPECT_TRUE(entries[1].timeKnown);
  EXPECT_EQ(entries[1].lastWriteTime, someTime);
}

TEST(listDirectory, datesWhatWasWrittenLaterLater) {
  World world;
  world.makeDirectory(world / L"1");
  sleepMilliseconds(200);
  world.makeDirectory(world / L"2");
  sleepMilliseconds(200);
  world.writeFile(world / L"1\\new entry", "");  // changes its directory, which becomes the later one

  const std::vector<DirectoryEntry> entries = sortedEntries(world.directory());

  ASSERT_EQ(entries.size(), 2u);
  EXPECT_GT(entries[0].lastWriteTime, entries[1].lastWriteTime + 100 * 10'000);
  EXPECT_LT(entries[0].lastWriteTime, entries[1].lastWriteTime + 10'000 * 10'000);
}

TEST(listDirectory, describesWhatALinkLeadsTo) {
  World world;
  world.makeDirectory(world / L"list");
  world.makeDirectory(world / L"target");
  world.makeLink(world / L"list\\link", world / L"target");
  world.setLastWriteTime(world / L"target", someTime);

  const std::vector<DirectoryEntry> entries = listDirectory(world / L"list");

  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].name, L"link");
  EXPECT_TRUE(entries[0].isDirectory);
  EXPECT_TRUE(entries[0].timeKnown);
  EXPECT_EQ(entries[0].lastWriteTime, someTime);
}

TEST(listDirectory, isEmptyForWhatCannotBeListed) {
  World world;
  world.makeDirectory(world / L"empty");
  world.writeFile(world / L"file", "x");
  for (const wchar_t* name : {L"empty", L"file", L"none", L"none\\below"}) {
    EXPECT_TRUE(listDirectory(world / name).empty()) << testing::PrintToString(std::wstring(name));
  }
}

TEST(removeEmptyDirectory, removesOnlyAnEmptyDirectory) {
  World world;
  for (const wchar_t* name : {L"empty", L"with a file", L"with a directory", L"with a directory\\inside", L"held"}) {
    world.makeDirectory(world / name);
  }
  world.writeFile(world / L"with a file\\file", "x");
  world.hold(world / L"held", contract::shareAllButRemoving);
  struct Case {
    const char* why;
    const wchar_t* name;
    std::uint32_t code;
  };
  const Case cases[] = {{"empty", L"empty", 0},
                        {"gone by now", L"empty", errorFileNotFound},
                        {"the directory above is missing", L"none\\below", errorPathNotFound},
                        {"holds a file", L"with a file", errorDirectoryNotEmpty},
                        {"holds a directory", L"with a directory", errorDirectoryNotEmpty},
                        {"held open by another", L"held", errorSharingViolation}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(removeEmptyDirectory(world / c.name), c.code);
  }
  EXPECT_EQ(world.namesIn(world.directory()), (Names{L"held", L"with a directory", L"with a file"}));
  EXPECT_TRUE(world.exists(world / L"with a file\\file"));
}

TEST(removeEmptyDirectory, leavesAFileAlone) {
  World world;
  world.writeFile(world / L"file", "kept");

  EXPECT_NE(removeEmptyDirectory(world / L"file"), 0u);

  EXPECT_EQ(world.readFile(world / L"file"), "kept");
}

TEST(removeDirectoryTree, removesEverythingBelowAndNothingBeside) {
  World world;
  for (const wchar_t* name : {L"tree", L"tree\\a", L"tree\\a\\b", L"tree\\c \u0416", L"trees"}) {
    world.makeDirectory(world / name);
  }
  for (const wchar_t* name : {L"tree\\1", L"tree\\a\\2", L"tree\\a\\b\\3", L"tree\\c \u0416\\4", L"trees\\kept"}) {
    world.writeFile(world / name, "x");
  }

  EXPECT_EQ(removeDirectoryTree(world / L"tree"), 0u);

  EXPECT_EQ(world.namesIn(world.directory()), Names{L"trees"});
  EXPECT_EQ(world.namesIn(world / L"trees"), Names{L"kept"});
}

TEST(removeDirectoryTree, removesWhatIsEmptyAndWhatIsReadOnly) {
  World world;
  world.makeDirectory(world / L"empty");
  world.makeDirectory(world / L"tree");
  world.makeDirectory(world / L"tree\\sub");
  world.writeFile(world / L"tree\\sub\\file", "x");
  world.makeReadOnly(world / L"tree\\sub\\file");

  EXPECT_EQ(removeDirectoryTree(world / L"empty"), 0u);
  EXPECT_EQ(removeDirectoryTree(world / L"tree"), 0u);

  EXPECT_EQ(world.namesIn(world.directory()), Names{});
}

TEST(removeDirectoryTree, goesOnPastAHeldFileAndReturnsTheFirstCode) {
  World world;
  world.makeDirectory(world / L"tree");
  world.makeDirectory(world / L"tree\\sub");
  for (const wchar_t* name : {L"tree\\a", L"tree\\sub\\b", L"tree\\sub\\m", L"tree\\z"}) {
    world.writeFile(world / name, "x");
  }
  world.hold(world / L"tree\\sub\\m", contract::shareAllButRemoving);

  EXPECT_EQ(removeDirectoryTree(world / L"tree"), errorSharingViolation) << "not 145, which follows from it";

  EXPECT_EQ(world.namesIn(world / L"tree"), Names{L"sub"});
  EXPECT_EQ(world.namesIn(world / L"tree\\sub"), Names{L"m"});
  world.releaseAll();
  EXPECT_EQ(removeDirectoryTree(world / L"tree"), 0u) << "the next time it goes";
  EXPECT_EQ(world.namesIn(world.directory()), Names{});
}

TEST(removeDirectoryTree, keepsADirectoryThatIsHeldButNotItsContents) {
  World world;
  world.makeDirectory(world / L"tree");
  world.writeFile(world / L"tree\\file", "x");
  world.hold(world / L"tree", contract::shareAllButRemoving);

  EXPECT_EQ(removeDirectoryTree(world / L"tree"), errorSharingViolation);

  EXPECT_EQ(world.namesIn(world.directory()), Names{L"tree"});
  EXPECT_EQ(world.namesIn(world / L"tree"), Names{});
}

// Windows removes the links themselves, and with them the tree. Wine cannot remove a link; so neither the codes nor
// the links are looked at.
TEST(removeDirectoryTree, leavesWhatLiesBehindALinkAlone) {
  World world;
  for (const wchar_t* name : {L"outside", L"outside\\sub", L"tree", L"tree\\sub"}) world.makeDirectory(world / name);
  world.writeFile(world / L"outside\\kept", "1");
  world.writeFile(world / L"outside\\sub\\kept", "2");
  world.writeFile(world / L"tree\\sub\\file", "x");
  world.makeLink(world / L"link", world / L"outside");
  world.makeLink(world / L"tree\\link", world / L"outside");
  world.makeLink(world / L"tree\\sub\\deep link", world / L"outside");

  (void)removeDirectoryTree(world / L"tree");
  (void)removeDirectoryTree(world / L"link");
  (void)removeEmptyDirectory(world / L"link");

  EXPECT_EQ(world.readFile(world / L"outside\\kept"), "1");
  EXPECT_EQ(world.readFile(world / L"outside\\sub\\kept"), "2");
  EXPECT_FALSE(world.exists(world / L"tree\\sub\\file"));
}

TEST(removeDirectoryTree, leavesAFileAlone) {
  World world;
  world.writeFile(world / L"file", "kept");

  EXPECT_NE(removeDirectoryTree(world / L"file"), 0u);

  EXPECT_EQ(world.readFile(world / L"file"), "kept");
}

TEST(removeDirectoryTree, keepsEverythingInADirectoryThatCannotBeListed) {
  World world;
  world.makeDirectory(world / L"tree");
  world.writeFile(world / L"tree\\file", "kept");
  world.hold(world / L"tree", contract::shareNothing);

  EXPECT_TRUE(listDirectory(world / L"tree").empty());
  EXPECT_EQ(removeDirectoryTree(world / L"tree"), errorSharingViolation);

  EXPECT_EQ(world.readFile(world / L"tree\\file"), "kept");
}

TEST(removeDirectoryTree, makesAReadOnlyFileWritableAlsoWhereItHasToStay) {
  World world;
  world.makeDirectory(world / L"tree");
  world.writeFile(world / L"tree\\file", "x");
  world.makeReadOnly(world / L"tree\\file");
  world.hold(world / L"tree\\file", contract::shareAllButRemoving);

  EXPECT_EQ(removeDirectoryTree(world / L"tree"), errorSharingViolation);

  world.releaseAll();
  world.writeFile(world / L"tree\\file", "writable");
  EXPECT_EQ(world.readFile(world / L"tree\\file"), "writable");
}

TEST(removeDirectoryTree, reportsWhatIsNotThere) {
  World world;
  EXPECT_EQ(removeDirectoryTree(world / L"none"), errorFileNotFound);
  EXPECT_EQ(removeDirectoryTree(world / L"none\\below"), errorPathNotFound);
}

TEST(systemMessage, isOneLineOfText) {
  for (const std::uint32_t code : {2u, 3u, 5u, 32u, 145u}) {
    SCOPED_TRACE(code);
    const std::string text = systemMessage(code);
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos) << text;
    EXPECT_NE(text.back(), ' ') << text;
  }
}

TEST(systemMessage, namesTheCodeWhereTheSystemHasNoText) {
  EXPECT_EQ(systemMessage(3'999'999'999), "Win32 error 3999999999");
}

}  // namespace
}  // namespace launcher_stub::os
