// The simulated files: sharing, durable replacement, locks, directories.
#include <gtest/gtest.h>

#include "os/directory.h"
#include "os/durable_file.h"
#include "os/file_status.h"
#include "os/lock_file.h"
#include "os/messages.h"
#include "os/state_root.h"
#include "tests/simulation/sim_os.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::sim {
namespace {

const std::wstring directory = L"C:\\Data";
const std::wstring file = L"C:\\Data\\file.json";

TEST(simulatedPath, isTheSameInEverySpelling) {
  SimOs sim;
  sim.writeFile(L"C:\\Data\\Sub\\One.txt", "1");

  std::string contents;
  EXPECT_TRUE(os::readStateFile(L"c:/data//SUB/one.TXT", contents));
  EXPECT_EQ(contents, "1");
}

TEST(simulatedPath, patternsMatchWholeElementsFromTheEnd) {
  struct Case {
    const char* why;
    const wchar_t* path;
    const wchar_t* pattern;
    bool matches;
  };
  const Case cases[] = {
      {"last element", L"C:\\A\\boot-v1.json", L"boot-v1.json", true},
      {"the whole path", L"C:\\A\\b.json", L"c:/a/B.json", true},
      {"no part of an element", L"C:\\A\\my-boot-v1.json", L"boot-v1.json", false},
      {"a star within an element", L"C:\\A\\boot-v1.json.tmp-1-ab", L"boot-v1.json.tmp-*", true},
      {"a star does not cross a separator", L"C:\\attempts\\x\\y\\boot-v1.json", L"attempts\\*\\boot-v1.json", false},
      {"a star for one element", L"C:\\attempts\\x\\boot-v1.json", L"attempts\\*\\boot-v1.json", true},
      {"an empty pattern matches all", L"C:\\A", L"", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(pathMatches(c.path, c.pattern), c.matches);
  }
}

TEST(simulatedStatus, tellsMissingFromUnknown) {
  SimOs sim;
  sim.writeFile(file, "");
  sim.fail(Call::status, L"hidden", win32::accessDenied);

  EXPECT_EQ(os::pathStatus(file), os::PathStatus::other);
  EXPECT_EQ(os::pathStatus(directory), os::PathStatus::directory);
  EXPECT_EQ(os::pathStatus(L"C:\\Data\\none"), os::PathStatus::missing);
  EXPECT_EQ(os::pathStatus(L"C:\\Data\\hidden"), os::PathStatus::unknown);
}

TEST(simulatedRead, keepsItsLimitAndMissesWhatOthersDoNotShare) {
  SimOs sim;
  sim.writeFile(file, std::string(65536, 'x'));
  sim.writeFile(L"C:\\Data\\large", std::string(65537, 'x'));
  std::string contents = "unchanged";

  EXPECT_FALSE(os::readStateFile(L"C:\\Data\\large", contents));
  EXPECT_FALSE(os::readStateFile(L"C:\\Data\\none", contents));
  EXPECT_FALSE(os::readStateFile(directory, contents));
  const int hold = sim.holdFile(file, accessNone);
  EXPECT_FALSE(os::readStateFile(file, contents));
  EXPECT_EQ(contents, "unchanged");
  sim.release(hold);
  EXPECT_TRUE(os::readStateFile(file, contents));
  EXPECT_EQ(contents.size(), 65536u);
}

TEST(simulatedReplace, leavesTheNewDocumentAndNothingElse) {
  SimOs sim;
  sim.writeFile(file, "old");

  EXPECT_TRUE(os::replaceFileDurably(file, "new"));
  EXPECT_EQ(sim.read(file), "new");
  EXPECT_EQ(sim.names(directory), std::vector<std::wstring>{L"file.json"});
  EXPECT_EQ(sim.replacementsOf(L"file.json"), 1);
  EXPECT_FALSE(os::replaceFileDurably(file, std::string(65537, 'x')));
  EXPECT_EQ(sim.count(Call::createTemporary), 1);
}

TEST(simulatedReplace, retriesForTwoSecondsWhileTheTargetIsHeld) {
  SimOs sim(1'000);
  sim.writeFile(file, "old");
  const int hold = sim.holdFile(file, accessReadWrite);
  bool temporarySeen = false;
  sim.at(2'000, [&] { temporarySeen = sim.names(directory).size() == 2; });

  EXPECT_FALSE(os::replaceFileDurably(file, "new"));

  EXPECT_EQ(sim.now(), 3'000u);
  EXPECT_EQ(sim.count(Call::rename), 41);
  EXPECT_TRUE(temporarySeen);
  EXPECT_EQ(sim.read(file), "old");
  EXPECT_EQ(sim.names(directory).size(), 1u);
  sim.release(hold);
}

TEST(simulatedReplace, succeedsOnceTheHolderLetsGo) {
  SimOs sim(1'000);
  sim.writeFile(file, "old");
  sim.holdFor(file, 120, accessReadWrite);

  EXPECT_TRUE(os::replaceFileDurably(file, "new"));
  EXPECT_EQ(sim.now(), 1'150u);
}

TEST(simulatedReplace, failsAtEachStepWithoutTouchingTheTarget) {
  const Call steps[] = {Call::replace,        Call::createTemporary, Call::writeTemporary,
                        Call::flushTemporary, Call::closeTemporary,  Call::rename};
  for (const Call step : steps) {
    SCOPED_TRACE(callName(step));
    SimOs sim;
    sim.writeFile(file, "old");
    sim.fail(step, L"", win32::diskFull);

    EXPECT_FALSE(os::replaceFileDurably(file, "new"));
    EXPECT_EQ(sim.read(file), "old");
    EXPECT_EQ(sim.names(directory).size(), 1u);
    EXPECT_EQ(sim.now(), 300'000u) << "only sharing violation and access denied are waited for";
  }
}

TEST(simulatedReplace, leavesTheTemporaryFileWhereItsDeletionFails) {
  SimOs sim;
  sim.writeFile(file, "old");
  sim.fail(Call::rename, L"", win32::diskFull);
  sim.fail(Call::deleteTemporary);

  EXPECT_FALSE(os::replaceFileDurably(file, "new"));
  ASSERT_EQ(sim.names(directory).size(), 2u);
  EXPECT_TRUE(sim.names(directory)[1].starts_with(L"file.json.tmp-4312-"));
}

TEST(simulatedRemoval, countsAMissingFileAsRemoved) {
  SimOs sim;
  sim.writeFile(file, "");
  const int hold = sim.holdFile(file, accessRead);

  EXPECT_FALSE(os::removeFile(file));
  sim.release(hold);
  EXPECT_TRUE(os::removeFile(file));
  EXPECT_TRUE(os::removeFile(file));
  EXPECT_TRUE(os::removeFile(L"C:\\None\\file"));
}

TEST(simulatedLock, isBusyAtOnceOrAfterFiveSeconds) {
  SimOs sim(1'000);
  sim.holdFile(file);
  os::LockFile lock;

  EXPECT_FALSE(os::openLockFile(lock, file, os::LockWait::none));
  EXPECT_TRUE(lock.busy);
  EXPECT_EQ(sim.now(), 1'000u);
  EXPECT_FALSE(os::openLockFile(lock, file, os::LockWait::fiveSeconds));
  EXPECT_TRUE(lock.busy);
  EXPECT_EQ(sim.now(), 6'000u);
  EXPECT_EQ(sim.count(Call::lockTry), 1 + 101);
}

TEST(simulatedLock, isTakenWhenItBecomesFreeAndExcludesItself) {
  SimOs sim(1'000);
  sim.holdFor(file, 710);
  os::LockFile lock;
  os::LockFile second;

  EXPECT_TRUE(os::openLockFile(lock, file, os::LockWait::fiveSeconds));
  EXPECT_EQ(sim.now(), 1'750u);
  EXPECT_FALSE(os::openLockFile(second, file, os::LockWait::none));
  os::closeLockFile(lock);
  os::closeLockFile(lock);
  EXPECT_TRUE(os::openLockFile(second, file, os::LockWait::none));
}

TEST(simulatedLock, failsAtOnceForOtherReasons) {
  SimOs sim;
  os::LockFile lock;

  EXPECT_FALSE(os::openLockFile(lock, L"C:\\None\\state.lock", os::LockWait::fiveSeconds));
  EXPECT_FALSE(lock.busy);
  EXPECT_EQ(sim.now(), 300'000u);
}

TEST(simulatedListing, goesByRankThenNameAndShowsTimesOfLinkTargets) {
  SimOs sim;
  sim.makeDirectory(L"C:\\Data\\b");
  sim.makeDirectory(L"C:\\Data\\c");
  sim.makeDirectory(L"C:\\Other");
  sim.writeFile(L"C:\\Data\\d", "");
  EXPECT_EQ(sim.disk().makeLink(L"C:\\Data\\a", L"C:\\Other", 5), 0u);
  sim.disk().attributes(L"C:\\Other")->lastWriteTime = 77;
  sim.disk().attributes(L"C:\\Data\\c")->listingRank = -1;
  sim.fail(Call::entryTime, L"Data\\b");

  const std::vector<os::DirectoryEntry> entries = os::listDirectory(directory);

  ASSERT_EQ(entries.size(), 4u);
  EXPECT_EQ(entries[0].name, L"c");
  EXPECT_EQ(entries[1].name, L"a");
  EXPECT_TRUE(entries[1].isDirectory);
  EXPECT_EQ(entries[1].lastWriteTime, 77u);
  EXPECT_FALSE(entries[2].timeKnown);
  EXPECT_FALSE(entries[3].isDirectory);
}

TEST(simulatedTreeRemoval, takesReadOnlyFilesButNothingBehindALink) {
  SimOs sim;
  sim.writeFile(L"C:\\Data\\sub\\file", "");
  sim.disk().attributes(L"C:\\Data\\sub\\file")->readOnly = true;
  sim.writeFile(L"C:\\Other\\kept", "");
  EXPECT_EQ(sim.disk().makeLink(L"C:\\Data\\link", L"C:\\Other", 5), 0u);

  EXPECT_EQ(os::removeEmptyDirectory(directory), os::errorDirectoryNotEmpty);
  EXPECT_EQ(os::removeDirectoryTree(directory), 0u);
  EXPECT_FALSE(sim.exists(directory));
  EXPECT_TRUE(sim.exists(L"C:\\Other\\kept"));
}

TEST(simulatedTreeRemoval, goesOnAfterAFailureAndReportsTheFirst) {
  SimOs sim;
  sim.writeFile(L"C:\\Data\\a", "");
  sim.writeFile(L"C:\\Data\\b", "");
  sim.holdFile(L"C:\\Data\\a", accessReadWrite);

  EXPECT_EQ(os::removeDirectoryTree(directory), win32::sharingViolation);
  EXPECT_EQ(sim.names(directory), std::vector<std::wstring>{L"a"});
}

TEST(simulatedPrivateDirectory, createsAncestorsAndJudgesOwners) {
  SimOs sim;
  std::string error;
  EXPECT_TRUE(os::createPrivateDirectory(L"C:\\p\\q\\r", &error));
  EXPECT_EQ(sim.count(Call::createDirectory), 3);

  sim.setOwner(L"C:\\p\\q\\r", Owner::administrators);
  EXPECT_FALSE(os::createPrivateDirectory(L"C:\\p\\q\\r", &error));
  EXPECT_EQ(error, os::messages::rootBelongsToAnother);
  sim.setMemberOfAdministrators(true);
  EXPECT_TRUE(os::createPrivateDirectory(L"C:\\p\\q\\r", &error));
  EXPECT_EQ(sim.disk().find(L"C:\\p\\q\\r")->owner, Owner::user);
}

TEST(simulatedPrivateDirectory, givesEachNoticeOncePerProcess) {
  SimOs sim;
  sim.makeDirectory(directory);
  for (int i = 0; i < 2; ++i) {
    sim.setListDrifted(directory);
    EXPECT_TRUE(os::verifyPrivateDirectory(directory));
  }
  EXPECT_EQ(sim.lineCount(os::messages::listReset), 1);

  sim.setVolumeKeepsLists(false);
  EXPECT_TRUE(os::verifyPrivateDirectory(directory));
  EXPECT_EQ(sim.lineCount(os::messages::volumeKeepsNoLists), 1);
}

}  // namespace
}  // namespace launcher_stub::sim
