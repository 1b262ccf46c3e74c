// What the simulated machine notices by itself.
#include <gtest/gtest.h>

#include <limits>

#include "os/child_process.h"
#include "os/clock.h"
#include "os/durable_file.h"
#include "os/handle.h"
#include "os/lock_file.h"
#include "os/text.h"
#include "os/this_process.h"
#include "tests/simulation/sim_os.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::sim {
namespace {

// The one problem that was noticed, without its time; empty for none, and a failure for several.
std::string noticed(SimOs& sim) {
  const std::vector<std::string> problems = sim.takeProblems();
  EXPECT_LE(problems.size(), 1u);
  return problems.empty() ? "" : problems[0].substr(problems[0].find("ms: ") + 4);
}

TEST(misuse, ofAHandleClosedTwiceIsNoticed) {
  SimOs sim;
  sim.makeDirectory(L"C:\\Data");
  os::LockFile lock;
  ASSERT_TRUE(os::openLockFile(lock, L"C:\\Data\\lock", os::LockWait::none));

  void* raw = lock.handle.get();
  os::closeLockFile(lock);
  os::HandleCloser()(raw);
  EXPECT_EQ(noticed(sim), "a handle is closed twice: file 1");
}

TEST(misuse, ofForeignAndSharedHandlesIsNoticed) {
  SimOs sim;
  sim.makeDirectory(L"C:\\Data");
  int local = 0;
  os::HandleCloser()(&local);
  EXPECT_EQ(noticed(sim), "a handle is closed that was never given out");

  os::LockFile lock;
  ASSERT_TRUE(os::openLockFile(lock, L"C:\\Data\\lock", os::LockWait::none));
  os::OwnedHandle second = os::adoptHandle(lock.handle.get());
  EXPECT_EQ(noticed(sim), "a handle is adopted that is owned or closed: file 1");
  (void)second.release();  // the lock owns it
}

TEST(misuse, theTwoWaysToSayNoHandleBecomeNull) {
  SimOs sim;
  EXPECT_EQ(os::adoptHandle(nullptr), nullptr);
  EXPECT_EQ(os::adoptHandle(reinterpret_cast<void*>(std::numeric_limits<std::uintptr_t>::max())), nullptr);
}

TEST(misuse, ofAHandleLeftOpenIsNoticedAtTheEndOfARun) {
  SimOs sim;
  sim.makeDirectory(L"C:\\Data");
  sim.runProcess([] {
    os::LockFile lock;
    EXPECT_TRUE(os::openLockFile(lock, L"C:\\Data\\lock", os::LockWait::none));
    (void)lock.handle.release();
    return 0;
  });
  EXPECT_EQ(noticed(sim), "a handle is left open: file 1 c:\\data\\lock");
}

TEST(misuse, ofStateFilesWithoutTheLockIsNoticed) {
  struct Case {
    const char* why;
    const wchar_t* name;
    bool guarded;
  };
  const Case cases[] = {
      {"the state", L"boot-v1.json", true},
      {"its predecessor", L"boot-v1.previous.json", true},
      {"an attempt's record", L"attempts\\n\\boot-v1.json", true},
      {"another file", L"other.json", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.makeDirectory(sim.statePath(L"attempts\\n"));
    EXPECT_TRUE(os::replaceFileDurably(sim.statePath(c.name), "{}"));
    EXPECT_EQ(noticed(sim).ends_with("without state.lock"), c.guarded);

    os::LockFile lock;
    ASSERT_TRUE(os::openLockFile(lock, sim.statePath(L"state.lock"), os::LockWait::none));
    EXPECT_TRUE(os::replaceFileDurably(sim.statePath(c.name), "{}"));
    EXPECT_EQ(noticed(sim), "");
  }
}

TEST(misuse, ofDeletingTheRequestWithoutTheLockIsNoticed) {
  SimOs sim;
  sim.writePending("request-1", 1, "aaaa");
  EXPECT_TRUE(os::removeFile(sim.statePath(L"pending-v1.json")));
  EXPECT_TRUE(noticed(sim).starts_with("deleted "));
}

TEST(misuse, ofSleepingOrStartingUnderTheStateLockIsNoticed) {
  SimOs sim;
  sim.installSeed(Runtime::silent());
  sim.makeDirectory(sim.stateRoot());
  os::LockFile lock;
  os::LockFile lease;
  ASSERT_TRUE(os::openLockFile(lock, sim.statePath(L"state.lock"), os::LockWait::none));
  ASSERT_TRUE(os::openLockFile(lease, sim.statePath(L"launch.lock"), os::LockWait::none));

  os::sleepMilliseconds(1);
  EXPECT_EQ(noticed(sim), "a sleep while state.lock is held");

  os::ChildProcess child;
  const std::wstring executable = sim.slotPath("seed", L"entry-v1.exe");
  const std::wstring directory = sim.stateRoot();
  EXPECT_TRUE(os::startChild(child, {executable, {}, directory, directory, directory, lease.handle.get()}));
  EXPECT_EQ(noticed(sim), "a start while state.lock is held");

  os::closeLockFile(lock);
  EXPECT_TRUE(os::startChild(child, {executable, {}, directory, directory, directory, lease.handle.get()}));
  EXPECT_EQ(noticed(sim), "a start while the last job still has processes");
}

TEST(misuse, ofAStartThatCanOutliveTheLauncherIsNoticed) {
  SimOs sim;
  sim.installSeed(Runtime::silent());
  sim.makeDirectory(sim.stateRoot());
  sim.before(Call::createJob, L"", [&] { sim.killLauncherNow(); });
  sim.runProcess([&] {
    os::LockFile lease;
    EXPECT_TRUE(os::openLockFile(lease, sim.statePath(L"launch.lock"), os::LockWait::none));
    os::ChildProcess child;
    const std::wstring executable = sim.slotPath("seed", L"entry-v1.exe");
    const std::wstring directory = sim.stateRoot();
    return os::startChild(child, {executable, {}, directory, directory, directory, lease.handle.get()}) ? 0 : 1;
  });
  EXPECT_TRUE(noticed(sim).starts_with("a process outlives its launcher: seed"));
  EXPECT_EQ(sim.livingProcesses(), 1) << "suspended, and it holds the lease";
}

TEST(misuse, ofARunWithoutEndIsNoticed) {
  SimOs sim;
  sim.setTimeLimit(10'000);
  sim.runProcess([] {
    for (;;) os::sleepMilliseconds(250);
    return 0;
  });
  EXPECT_EQ(noticed(sim), "the run did not end within 10000 ms");

  sim.runProcess([] {
    for (;;) (void)os::launcherExecutablePath();
    return 0;
  });
  EXPECT_EQ(noticed(sim), "calls without end and without sleep");
}

TEST(simulatedFault, strikesWhereAndWhileItIsToldTo) {
  SimOs sim(1'000);
  sim.writeFile(L"C:\\Data\\a", "a");
  std::string contents;
  const auto reads = [&](const wchar_t* path) { return os::readStateFile(path, contents); };

  sim.fail(Call::readFile, L"Data\\a").skip(1).times(1);
  EXPECT_TRUE(reads(L"C:\\Data\\a"));
  EXPECT_FALSE(reads(L"C:\\Data\\a"));
  EXPECT_TRUE(reads(L"C:\\Data\\a"));
  sim.fail(Call::readFile, L"a").from(2'000).until(3'000);
  EXPECT_TRUE(reads(L"C:\\Data\\a"));
  sim.advance(1'000);
  EXPECT_FALSE(reads(L"C:\\Data\\a"));
  sim.advance(1'000);
  EXPECT_TRUE(reads(L"C:\\Data\\a"));
}

TEST(simulatedClock, runsWhatIsScheduledInOrderAndAtItsTime) {
  SimOs sim(0);
  std::vector<std::uint64_t> times;
  sim.at(30, [&] { times.push_back(sim.now()); });
  sim.at(10, [&] {
    times.push_back(sim.now());
    sim.after(5, [&] { times.push_back(sim.now()); });
  });

  os::sleepMilliseconds(20);
  EXPECT_EQ(times, (std::vector<std::uint64_t>{10, 15}));
  os::sleepMilliseconds(20);
  EXPECT_EQ(times.back(), 30u);
  EXPECT_EQ(os::monotonicMilliseconds(), 40u);
}

TEST(simulatedText, isStrictInBothDirections) {
  struct Case {
    const char* why;
    std::string utf8;
    std::wstring wide;
  };
  const Case valid[] = {
      {"ASCII", "a", L"a"},
      {"two bytes", "\xD0\xA9", L"\u0429"},
      {"three bytes", "\xE2\x82\xAC", L"\u20AC"},
      {"four bytes", "\xF0\x9F\x98\x80", L"\U0001F600"},
  };
  for (const Case& c : valid) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(os::toWide(c.utf8), c.wide);
    EXPECT_EQ(os::toUtf8(c.wide), c.utf8);
  }
  for (const char* broken : {"a\x80", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82", "\xE0\x80\xAF"}) {
    EXPECT_EQ(os::toWide(broken), L"") << printable(std::wstring(broken, broken + 1));
  }
  EXPECT_EQ(os::toUtf8(std::wstring{L'a', static_cast<wchar_t>(0xD800)}), "");
  EXPECT_EQ(os::toSystemCodePage(L"a\u0429\u00E9"), "a?\xE9");
}

}  // namespace
}  // namespace launcher_stub::sim
