#include "os/directory.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>

#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::os {
namespace {

using tests::TempDirectory;

constexpr std::uint64_t someTime = 133'000'000'000'000'000;  // in 2022

std::vector<DirectoryEntry> sortedEntries(const std::wstring& path) {
  std::vector<DirectoryEntry> entries = listDirectory(path);
  std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  return entries;
}

TEST(listDirectory, namesFilesAndDirectoriesWithTheirTimes) {
  const TempDirectory directory;
  tests::makeDirectory(directory / L"\u0416 dir");
  tests::writeFile(directory / L"file.txt", "x");
  tests::setLastWriteTime(directory / L"\u0416 dir", someTime);
  tests::setLastWriteTime(directory / L"file.txt", someTime + 1);  // 100 ns later

  const std::vector<DirectoryEntry> entries = sortedEntries(directory.path());

  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].name, L"file.txt");
  EXPECT_FALSE(entries[0].isDirectory);
  EXPECT_TRUE(entries[0].timeKnown);
  EXPECT_EQ(entries[0].lastWriteTime, someTime + 1);
  EXPECT_EQ(entries[1].name, L"\u0416 dir");
  EXPECT_TRUE(entries[1].isDirectory);
  EXPECT_TRUE(entries[1].timeKnown);
  EXPECT_EQ(entries[1].lastWriteTime, someTime);
}

TEST(listDirectory, isEmptyForWhatCannotBeListed) {
  const TempDirectory directory;
  tests::writeFile(directory / L"file", "x");
  EXPECT_TRUE(listDirectory(directory / L"none").empty());
  EXPECT_TRUE(listDirectory(directory / L"file").empty());
  tests::makeDirectory(directory / L"empty");
  EXPECT_TRUE(listDirectory(directory / L"empty").empty());
}

TEST(listDirectory, describesWhatALinkLeadsTo) {
  const TempDirectory directory;
  tests::makeDirectory(directory / L"list");
  tests::makeDirectory(directory / L"target");
  tests::makeDirectoryLink(directory / L"list\\link", directory / L"target");
  tests::setLastWriteTime(directory / L"target", someTime);

  const std::vector<DirectoryEntry> entries = listDirectory(directory / L"list");

  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].name, L"link");
  EXPECT_TRUE(entries[0].isDirectory);
  EXPECT_TRUE(entries[0].timeKnown);
  EXPECT_EQ(entries[0].lastWriteTime, someTime);
}

TEST(removeEmptyDirectory, removesOnlyWhatIsEmpty) {
  const TempDirectory directory;
  tests::makeDirectory(directory / L"full");
  tests::writeFile(directory / L"full\\file", "x");
  EXPECT_EQ(removeEmptyDirectory(directory / L"full"), errorDirectoryNotEmpty);
  EXPECT_TRUE(tests::exists(directory / L"full\\file"));

  tests::makeDirectory(directory / L"empty");
  EXPECT_EQ(removeEmptyDirectory(directory / L"empty"), 0u);
  EXPECT_FALSE(tests::exists(directory / L"empty"));
  EXPECT_EQ(removeEmptyDirectory(directory / L"empty"), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
}

// Windows removes the link. Wine looks through it instead: it refuses to remove one that leads to a full directory, as
// all do here, and has no call that removes it. What lies behind has to stay on both.
struct LinkRemoval {
  std::uint32_t code = tests::runsUnderWine() ? errorDirectoryNotEmpty : 0;
  bool linkStays = tests::runsUnderWine();
};

TEST(removeEmptyDirectory, removesALinkAndLeavesItsTarget) {
  const TempDirectory directory;
  tests::makeDirectory(directory / L"target");
  tests::writeFile(directory / L"target\\kept", "x");
  tests::makeDirectoryLink(directory / L"link", directory / L"target");

  EXPECT_EQ(removeEmptyDirectory(directory / L"link"), LinkRemoval().code);

  EXPECT_EQ(tests::exists(directory / L"link"), LinkRemoval().linkStays);
  EXPECT_TRUE(tests::exists(directory / L"target\\kept"));
}

TEST(removeDirectoryTree, removesEverythingBelow) {
  const TempDirectory directory;
  const std::wstring tree = directory / L"tree";
  for (const wchar_t* below : {L"", L"\\a", L"\\a\\b", L"\\c \u0416"}) tests::makeDirectory(tree + below);
  for (const wchar_t* below : {L"\\1", L"\\a\\2", L"\\a\\b\\3", L"\\c \u0416\\4"}) tests::writeFile(tree + below, "x");

  EXPECT_EQ(removeDirectoryTree(tree), 0u);

  EXPECT_FALSE(tests::exists(tree));
}

TEST(removeDirectoryTree, removesWhatIsReadOnly) {
  const TempDirectory directory;
  tests::makeDirectory(directory / L"tree");
  tests::makeDirectory(directory / L"tree\\sub");
  tests::writeFile(directory / L"tree\\sub\\file", "x");
  tests::setAttributes(directory / L"tree\\sub\\file", FILE_ATTRIBUTE_READONLY);
  tests::setAttributes(directory / L"tree\\sub", FILE_ATTRIBUTE_READONLY);

  EXPECT_EQ(removeDirectoryTree(directory / L"tree"), 0u);

  EXPECT_FALSE(tests::exists(directory / L"tree"));
}

TEST(removeDirectoryTree, removesLinksWithoutTouchingWhatLiesBehind) {
  const TempDirectory directory;
  const std::wstring tree = directory / L"tree";
  tests::makeDirectory(directory / L"outside");
  tests::writeFile(directory / L"outside\\kept", "x");
  tests::makeDirectory(tree);
  tests::makeDirectory(tree + L"\\sub");
  tests::writeFile(tree + L"\\sub\\file", "x");
  tests::makeDirectoryLink(tree + L"\\link", directory / L"outside");
  tests::makeDirectoryLink(tree + L"\\sub\\deep link", directory / L"outside");

  EXPECT_EQ(removeDirectoryTree(tree), LinkRemoval().code);

  EXPECT_EQ(tests::readFile(directory / L"outside\\kept"), "x");
  EXPECT_EQ(tests::exists(tree), LinkRemoval().linkStays);
  EXPECT_FALSE(tests::exists(tree + L"\\sub\\file"));
}

TEST(removeDirectoryTree, treatsALinkGivenToItAsALink) {
  const TempDirectory directory;
  tests::makeDirectory(directory / L"outside");
  tests::writeFile(directory / L"outside\\kept", "x");
  tests::makeDirectoryLink(directory / L"link", directory / L"outside");

  EXPECT_EQ(removeDirectoryTree(directory / L"link"), LinkRemoval().code);

  EXPECT_EQ(tests::exists(directory / L"link"), LinkRemoval().linkStays);
  EXPECT_TRUE(tests::exists(directory / L"outside\\kept"));
}

TEST(removeDirectoryTree, goesOnAfterAFailureAndReturnsTheFirst) {
  const TempDirectory directory;
  const std::wstring tree = directory / L"tree";
  tests::makeDirectory(tree);
  for (const wchar_t* name : {L"\\a", L"\\m", L"\\z"}) tests::writeFile(tree + name, "x");
  HANDLE held = CreateFileW((tree + L"\\m").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(held, INVALID_HANDLE_VALUE);

  EXPECT_EQ(removeDirectoryTree(tree), static_cast<std::uint32_t>(ERROR_SHARING_VIOLATION));

  EXPECT_EQ(tests::namesIn(tree), std::vector<std::wstring>{L"m"});
  CloseHandle(held);
}

TEST(removeDirectoryTree, reportsWhatIsNotThere) {
  const TempDirectory directory;
  EXPECT_EQ(removeDirectoryTree(directory / L"none"), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
}

TEST(systemMessage, isTheSystemsTextWithoutItsLineEnd) {
  for (const std::uint32_t code : {2u, 5u, 32u, 145u}) {
    wchar_t expected[512] = {};
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                                  expected, 512, nullptr);
    while (length > 0 && (expected[length - 1] == L'\r' || expected[length - 1] == L'\n')) --length;
    ASSERT_GT(length, 0u);

    const std::string text = systemMessage(code);

    EXPECT_EQ(text, std::string(expected, expected + length)) << code;
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);
  }
}

TEST(systemMessage, namesTheCodeWhereTheSystemHasNoText) {
  EXPECT_EQ(systemMessage(3'999'999'999), "Win32 error 3999999999");
}

}  // namespace
}  // namespace launcher_stub::os
