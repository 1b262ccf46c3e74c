// What the launcher leaves to others while a runtime runs: every file of the slot, of the attempt and of the state.

#include <gtest/gtest.h>
#include <windows.h>

#include "tests/end_to_end/error_window.h"
#include "tests/end_to_end/harness.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

// The files below a directory that nobody has open, and those that somebody has.
struct FilesBelow {
  std::vector<std::string> free;
  std::vector<std::string> inUse;
};

void sortOut(const std::wstring& directory, const std::wstring& relative, FilesBelow& files) {
  for (const std::wstring& name : listDirectory(directory)) {
    const std::wstring path = directory + L"\\" + name;
    const std::wstring shown = relative.empty() ? name : relative + L"\\" + name;
    if ((GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      sortOut(path, shown, files);
    } else {
      (openExclusively(path) != nullptr ? files.free : files.inUse).push_back(toUtf8(shown));
    }
  }
}

FilesBelow filesBelow(const std::wstring& directory) {
  FilesBelow files;
  sortOut(directory, L"", files);
  return files;
}

using Names = std::vector<std::string>;

// Wine keeps no file of a running program open; Windows does, and lets nobody write to it: so without that. What is
// open for the moment of a look at it is waited for.
FilesBelow filesWithout(const std::wstring& directory, const std::string& program, const Names& expectedInUse) {
  FilesBelow files;
  waitUntil(
      [&] {
        files = filesBelow(directory);
        std::erase(files.inUse, program);
        return files.inUse == expectedInUse;
      },
      5'000);
  return files;
}

class GuestTest : public testing::Test {
 protected:
  GuestTest() {
    installation_.installSeed(fails, deliveryA);
    installation_.installSlot("aaaa", staysForever, {.complete = true, .deliveryId = deliveryA});
    installation_.writeState(StateText{.generation = 5, .active = "aaaa"}.json());
  }
  // Past the first look at its marker.
  bool runs() const {
    if (!installation_.startsWithin(1)) return false;
    Sleep(1'000);
    return true;
  }
  Installation installation_;
};

TEST_F(GuestTest, theLeaseIsTheOneFileThatIsInUseInTheStateRootBesideTheProgramThatRuns) {
  Launcher launcher = installation_.start();
  ASSERT_TRUE(runs());

  const FilesBelow files = filesWithout(installation_.stateRoot(), "slots\\aaaa\\entry-v1.exe", {"launch.lock"});

  EXPECT_EQ(files.inUse, Names{"launch.lock"});
  EXPECT_GE(files.free.size(), 7U) << "the state and its lock, three of the slot, the attempt's record and its marker";
  EXPECT_TRUE(launcher.isRunning());
}

TEST_F(GuestTest, allFilesOfARunningSlotButItsProgramCanBeRemoved) {
  Launcher launcher = installation_.start();
  ASSERT_TRUE(runs());
  const std::wstring slot = installation_.slotDirectory("aaaa");

  for (const wchar_t* name : {L"COMPLETE-v1", L"delivery-v1.json", L"script.txt"}) {
    EXPECT_TRUE(DeleteFileW((slot + L"\\" + name).c_str())) << toUtf8(name) << ": " << GetLastError();
  }
  EXPECT_TRUE(launcher.isRunning());
}

TEST_F(GuestTest, theInstallDirectoryIsLeftAlone) {
  Launcher launcher = installation_.start();
  ASSERT_TRUE(runs());

  EXPECT_EQ(filesWithout(installation_.directory(), "launcher.exe", {}).inUse, Names{});
  EXPECT_TRUE(launcher.isRunning());
}

// It has asked its message queue, and still has no window: nothing in the task bar and nothing to switch to.
TEST_F(GuestTest, theLauncherHasNoWindowWhileTheRuntimeRuns) {
  Launcher launcher = installation_.start();
  ASSERT_TRUE(runs());

  EXPECT_TRUE(windowsOf(launcher.process().id()).empty());
  EXPECT_EQ(launcher.lines(), Names{});
}

}  // namespace
}  // namespace end_to_end
