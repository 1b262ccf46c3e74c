// The fault model of the disk: what a power cut may take back, and what it may not.
#include "tests/simulation/sim_power_cut.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "os/durable_file.h"
#include "tests/simulation/sim_os.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::sim {
namespace {

using Texts = std::set<std::string>;

constexpr const wchar_t* directory = L"C:\\Data";
constexpr const wchar_t* file = L"C:\\Data\\file";

// What the file may hold after a cut; "(none)" where it may be gone.
Texts contentsAfterACut(const Disk& disk, std::uint64_t time, const std::wstring& path = file) {
  Texts found;
  for (const Disk& image : PowerCut(disk, time).images()) {
    const Node* node = image.find(path);
    found.insert(node == nullptr ? "(none)" : node->contents);
  }
  return found;
}

// A disk on which the directory lies since long ago.
Disk settledDisk() {
  Disk disk;
  disk.makeDirectories(directory, 0);
  disk.settle();
  return disk;
}

TEST(powerCut, mayTakeBackACreatedDirectoryWithAllInIt) {
  Disk disk = settledDisk();
  ASSERT_EQ(disk.makeDirectory(L"C:\\Data\\sub", 1), 0u);
  ASSERT_EQ(disk.writeFile(L"C:\\Data\\sub\\file", "", 2), 0u);

  int both = 0;
  int directoryOnly = 0;
  int neither = 0;
  for (const Disk& image : PowerCut(disk, 3).images()) {
    const bool hasDirectory = image.find(L"C:\\Data\\sub") != nullptr;
    const bool hasFile = image.find(L"C:\\Data\\sub\\file") != nullptr;
    EXPECT_TRUE(hasDirectory || !hasFile);
    both += hasFile;
    directoryOnly += hasDirectory && !hasFile;
    neither += !hasDirectory;
  }
  EXPECT_EQ(both, 1);
  EXPECT_EQ(directoryOnly, 1);
  EXPECT_EQ(neither, 2);
}

TEST(powerCut, mayTakeBackADeletion) {
  Disk disk = settledDisk();
  ASSERT_EQ(disk.writeFile(file, "text", 0), 0u);
  disk.settle();
  ASSERT_EQ(disk.removeFile(file, 1), 0u);

  EXPECT_EQ(contentsAfterACut(disk, 2), (Texts{"text", "(none)"}));
}

TEST(powerCut, mayLoseOrTearWhatWasNotFlushed) {
  Disk disk = settledDisk();
  ASSERT_EQ(disk.writeFile(file, "old", 0), 0u);
  disk.settle();
  ASSERT_EQ(disk.writeFile(file, "newer", 1), 0u);

  EXPECT_EQ(contentsAfterACut(disk, 2), (Texts{"newer", "old", "ne", std::string(5, '\0')}));
}

TEST(powerCut, leavesFlushedContentsWholeButNotTheName) {
  Disk disk = settledDisk();
  ASSERT_EQ(disk.writeFile(file, "text", 1), 0u);
  disk.flushFile(file);

  EXPECT_EQ(contentsAfterACut(disk, 2), (Texts{"text", "(none)"}));
}

TEST(powerCut, doesNotUndoARenameWithWriteThroughNorTheDirectoriesOnTheWayToIt) {
  Disk disk = settledDisk();
  ASSERT_EQ(disk.makeDirectory(L"C:\\Data\\sub", 1), 0u);
  ASSERT_EQ(disk.writeFile(L"C:\\Data\\sub\\temporary", "text", 2), 0u);
  disk.flushFile(L"C:\\Data\\sub\\temporary");
  ASSERT_EQ(disk.rename(L"C:\\Data\\sub\\temporary", L"C:\\Data\\sub\\file", 3), 0u);

  EXPECT_EQ(PowerCut(disk, 4).images().size(), 1u);
  EXPECT_EQ(contentsAfterACut(disk, 4, L"C:\\Data\\sub\\file"), Texts{"text"});
}

TEST(powerCut, damagesARenamedFileThatWasNotFlushed) {
  Disk disk = settledDisk();
  ASSERT_EQ(disk.writeFile(L"C:\\Data\\temporary", "text", 1), 0u);
  ASSERT_EQ(disk.rename(L"C:\\Data\\temporary", file, 2), 0u);

  EXPECT_EQ(contentsAfterACut(disk, 3), (Texts{"text", "", "te", std::string(4, '\0')}));
}

TEST(powerCut, undoesNothingThatIsThirtySecondsOld) {
  Disk disk = settledDisk();
  ASSERT_EQ(disk.writeFile(file, "", 1), 0u);

  EXPECT_EQ(PowerCut(disk, settlesAfter).images().size(), 2u);
  EXPECT_EQ(PowerCut(disk, settlesAfter + 1).images().size(), 1u);
}

TEST(powerCut, takesEveryChangeForItself) {
  Disk disk = settledDisk();
  for (const wchar_t* name : {L"C:\\Data\\a", L"C:\\Data\\b", L"C:\\Data\\c"}) {
    ASSERT_EQ(disk.writeFile(name, "", 1), 0u);
  }
  Texts combinations;
  for (const Disk& image : PowerCut(disk, 2).images()) {
    std::string names;
    for (const Node& node : image.list(directory)) names += static_cast<char>(node.name[0]);
    combinations.insert(names);
  }
  EXPECT_EQ(combinations, (Texts{"", "a", "b", "c", "ab", "ac", "bc", "abc"}));
}

TEST(powerCut, keepsOrLosesTogetherWhatNobodyLooksAt) {
  Disk disk = settledDisk();
  for (const wchar_t* name : {L"C:\\Data\\a", L"C:\\Data\\b.tmp-1", L"C:\\Data\\c.tmp-2"}) {
    ASSERT_EQ(disk.writeFile(name, "", 1), 0u);
  }
  const auto isTemporary = [](const std::wstring& key) { return key.find(L".tmp-") != std::wstring::npos; };

  EXPECT_EQ(PowerCut(disk, 2).images(isTemporary).size(), 2u);
}

TEST(powerCut, refusesMoreCombinationsThanCanBeTried) {
  Disk disk = settledDisk();
  for (int i = 0; i < 15; ++i) ASSERT_EQ(disk.writeFile(L"C:\\Data\\" + std::to_wstring(i), "", 1), 0u);

  EXPECT_THROW((void)PowerCut(disk, 2).images(), std::length_error);
}

TEST(powerCut, byChanceGivesOneOfTheSameDisks) {
  Disk disk = settledDisk();
  ASSERT_EQ(disk.writeFile(file, "", 1), 0u);

  EXPECT_NE(PowerCut(disk, 2).randomImage([](int) { return 0; }).find(file), nullptr);
  EXPECT_EQ(PowerCut(disk, 2).randomImage([](int count) { return count - 1; }).find(file), nullptr);
}

// At no moment of a replacement is there anything but the old document or the new one.
TEST(powerCut, findsTheOldDocumentOrTheNewOneAtEveryMomentOfAReplacement) {
  struct EveryMoment : Observer {
    explicit EveryMoment(SimOs& machine) : sim(machine) {}
    void mayBeCutOff() override {
      const Texts now = contentsAfterACut(sim.disk(), sim.fileTime());
      seen.insert(now.begin(), now.end());
    }
    SimOs& sim;
    Texts seen;
  };
  SimOs sim;
  sim.writeFile(file, "old");
  EveryMoment moments(sim);
  sim.observe(&moments);

  EXPECT_TRUE(os::replaceFileDurably(file, "new"));

  EXPECT_EQ(moments.seen, (Texts{"old", "new"}));
  EXPECT_EQ(contentsAfterACut(sim.disk(), sim.fileTime()), Texts{"new"});
}

}  // namespace
}  // namespace launcher_stub::sim
