#include "os/lock_file.h"

#include <gtest/gtest.h>

#include "tests/os/contract/contract_world.h"

namespace launcher_stub::os {
namespace {

using contract::World;

constexpr std::uint64_t atOnceMs = 1'000;  // not even one second of the five

TEST(openLockFile, createsAMissingFileEmptyAndHoldsIt) {
  World world;
  LockFile lock;
  lock.busy = true;  // stale, from a failure before

  EXPECT_TRUE(openLockFile(lock, world / L"a.lock", LockWait::none));

  EXPECT_NE(lock.handle, nullptr);
  EXPECT_FALSE(lock.busy);
  EXPECT_TRUE(world.exists(world / L"a.lock"));
  EXPECT_EQ(world.readFile(world / L"a.lock"), std::nullopt) << "nobody else may even read it";
  closeLockFile(lock);
  EXPECT_EQ(world.readFile(world / L"a.lock"), "");
}

TEST(openLockFile, takesAnExistingFileAndLeavesItsContentAlone) {
  World world;
  world.writeFile(world / L"a.lock", "kept");
  for (const LockWait wait : {LockWait::none, LockWait::fiveSeconds}) {
    LockFile lock;
    EXPECT_TRUE(openLockFile(lock, world / L"a.lock", wait));
    closeLockFile(lock);
  }

  EXPECT_EQ(world.readFile(world / L"a.lock"), "kept");
}

TEST(openLockFile, isBusyAtOnceWhereOneTryIsAskedFor) {
  struct Case {
    const char* why;
    contract::Sharing sharing;
  };
  const Case cases[] = {{"the other shares nothing", contract::shareNothing},
                        {"the other shares reading", contract::shareReading},
                        {"the other shares everything, but a lock does not", contract::shareEverything}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    World world;
    world.writeFile(world / L"a.lock", "");
    world.hold(world / L"a.lock", c.sharing);
    LockFile lock;
    const std::uint64_t start = world.now();
    EXPECT_FALSE(openLockFile(lock, world / L"a.lock", LockWait::none));
    EXPECT_LT(world.now() - start, atOnceMs);
    EXPECT_TRUE(lock.busy);
    EXPECT_EQ(lock.handle, nullptr);
  }
}

TEST(openLockFile, isBusyWhileAnotherLockIsHeldAndFreeAfterwards) {
  World world;
  LockFile first;
  LockFile second;
  ASSERT_TRUE(openLockFile(first, world / L"a.lock", LockWait::none));
  for (const std::wstring& name : {world / L"a.lock", world / L"A.LOCK", world.directory() + L"/a.lock"}) {
    SCOPED_TRACE(testing::PrintToString(name));  // one file, however it is spelled
    EXPECT_FALSE(openLockFile(second, name, LockWait::none));
    EXPECT_TRUE(second.busy);
  }

  closeLockFile(first);

  EXPECT_TRUE(openLockFile(second, world / L"a.lock", LockWait::none));
  EXPECT_FALSE(second.busy);
}

TEST(openLockFile, waitsFiveSecondsAndIsThenBusy) {
  World world;
  world.writeFile(world / L"a.lock", "");
  world.hold(world / L"a.lock", contract::shareNothing);
  LockFile lock;
  const std::uint64_t start = world.now();

  EXPECT_FALSE(openLockFile(lock, world / L"a.lock", LockWait::fiveSeconds));

  const std::uint64_t elapsed = world.now() - start;
  EXPECT_GE(elapsed + World::clockStepMs, 5'000u);
  EXPECT_LT(elapsed, 6'500u);
  EXPECT_TRUE(lock.busy);
}

// Sooner than after the whole wait: so it was tried in between.
TEST(openLockFile, takesALockThatIsFreedWhileItWaits) {
  World world;
  world.writeFile(world / L"a.lock", "");
  LockFile lock;
  const std::uint64_t start = world.now();
  world.holdFor(700, world / L"a.lock", contract::shareNothing);

  EXPECT_TRUE(openLockFile(lock, world / L"a.lock", LockWait::fiveSeconds));

  const std::uint64_t elapsed = world.now() - start;
  EXPECT_GE(elapsed + World::clockStepMs, 700u);
  EXPECT_LT(elapsed, 4'000u);
  EXPECT_NE(lock.handle, nullptr);
}

TEST(openLockFile, failsAtOnceForEverythingButASharingViolation) {
  World world;
  world.makeDirectory(world / L"directory");
  world.writeFile(world / L"file", "");
  struct Case {
    const char* why;
    std::wstring path;
  };
  const Case cases[] = {{"the directory is missing", world / L"none\\a.lock"},
                        {"a file stands where the directory should", world / L"file\\a.lock"},
                        {"a name that no file can have", world / L"a|b"},
                        {"the path is a directory", world / L"directory"}};
  for (const Case& c : cases) {
    for (const LockWait wait : {LockWait::none, LockWait::fiveSeconds}) {
      SCOPED_TRACE(std::string(c.why) + (wait == LockWait::none ? ", one try" : ", waiting"));
      LockFile lock;
      lock.busy = true;  // stale, from a failure before
      const std::uint64_t start = world.now();
      EXPECT_FALSE(openLockFile(lock, c.path, wait));
      EXPECT_LT(world.now() - start, atOnceMs);
      EXPECT_FALSE(lock.busy);
      EXPECT_EQ(lock.handle, nullptr);
    }
  }
}

// Windows refuses a read-only file; Wine opens it where its user may write everything.
TEST(openLockFile, neverTakesAReadOnlyFileForABusyOne) {
  World world;
  world.writeFile(world / L"a.lock", "");
  world.makeReadOnly(world / L"a.lock");
  LockFile lock;
  const std::uint64_t start = world.now();

  const bool taken = openLockFile(lock, world / L"a.lock", LockWait::fiveSeconds);

  EXPECT_LT(world.now() - start, atOnceMs);
  EXPECT_FALSE(lock.busy);
  EXPECT_EQ(lock.handle != nullptr, taken);
}

TEST(closeLockFile, isHarmlessTwiceAndLeavesTheFile) {
  World world;
  LockFile lock;
  ASSERT_TRUE(openLockFile(lock, world / L"a.lock", LockWait::none));

  closeLockFile(lock);
  closeLockFile(lock);

  EXPECT_EQ(lock.handle, nullptr);
  EXPECT_TRUE(world.exists(world / L"a.lock"));
}

TEST(closeLockFile, makesRoomForTheSameHolderAgain) {
  World world;
  LockFile lock;
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(openLockFile(lock, world / L"a.lock", LockWait::none)) << "round " << round;
    closeLockFile(lock);
  }
}

TEST(lockFile, isReleasedWhenItsHolderLeavesTheScope) {
  World world;
  {
    LockFile lock;
    ASSERT_TRUE(openLockFile(lock, world / L"a.lock", LockWait::none));
  }
  LockFile next;
  EXPECT_TRUE(openLockFile(next, world / L"a.lock", LockWait::none));
}

}  // namespace
}  // namespace launcher_stub::os
