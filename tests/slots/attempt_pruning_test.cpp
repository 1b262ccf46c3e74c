#include "slots/attempt_pruning.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/simulation/sim_os.h"

namespace launcher_stub {
namespace {

using sim::Call;
using sim::SimOs;
using Names = std::vector<std::wstring>;
using Lines = std::vector<std::string>;

constexpr const char* cannotPrune = "cannot prune old attempt: ";

// A state root with attempts, each holding a record, and times of its own choice.
struct Attempts {
  Attempts() { sim.makeDirectory(directory()); }

  std::wstring directory() const { return sim.statePath(L"attempts"); }
  std::wstring path(const std::wstring& name) const { return directory() + L"\\" + name; }

  void add(const std::wstring& name, std::uint64_t lastWriteTime) {
    sim.writeFile(path(name) + L"\\boot-v1.json", "{}");
    sim.disk().attributes(path(name))->lastWriteTime = lastWriteTime;
  }

  void prune(const std::wstring& current = L"current") { pruneAttempts(sim.stateRoot(), current); }
  Names left() const { return sim.names(directory()); }

  SimOs sim;
};

TEST(pruneAttempts, removesNothingWhereOnlyTheCurrentOneIsThere) {
  Attempts attempts;
  attempts.add(L"current", 50);

  attempts.prune();

  EXPECT_EQ(attempts.left(), Names{L"current"});
  EXPECT_EQ(attempts.sim.lines(), Lines{});
}

TEST(pruneAttempts, keepsTheCurrentAndTheNewestOther) {
  struct Case {
    const char* why;
    std::uint64_t first, second, third, current;
    Names left;
  };
  const Case cases[] = {
      {"the last is the newest", 10, 20, 30, 40, {L"cccc", L"current"}},
      {"the one in the middle", 10, 30, 20, 40, {L"bbbb", L"current"}},
      {"the first", 30, 20, 10, 40, {L"aaaa", L"current"}},
      {"the current one is the oldest", 10, 20, 30, 1, {L"cccc", L"current"}},
      {"the current one is in between", 10, 20, 30, 25, {L"cccc", L"current"}},
      {"newer by the least step, 100 ns", 7, 8, 6, 40, {L"bbbb", L"current"}},
      {"beyond 32 bits", 0x1'0000'0001, 0x1'0000'0000, 5, 40, {L"aaaa", L"current"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Attempts attempts;
    attempts.add(L"aaaa", c.first);
    attempts.add(L"bbbb", c.second);
    attempts.add(L"cccc", c.third);
    attempts.add(L"current", c.current);

    attempts.prune();

    EXPECT_EQ(attempts.left(), c.left);
    EXPECT_EQ(attempts.sim.lines(), Lines{});
  }
}

TEST(pruneAttempts, keepsTheNewestWhereTheCurrentOneIsNotThereYet) {
  Attempts attempts;
  attempts.add(L"aaaa", 10);
  attempts.add(L"bbbb", 20);

  attempts.prune();

  EXPECT_EQ(attempts.left(), Names{L"bbbb"});
}

TEST(pruneAttempts, keepsTheOneThatIsListedFirstOfEquallyNewOnes) {
  for (const bool turned : {false, true}) {
    SCOPED_TRACE(turned ? "listed against the alphabet" : "listed by name");
    Attempts attempts;
    attempts.add(L"aaaa", 20);
    attempts.add(L"bbbb", 20);
    attempts.add(L"cccc", 20);
    if (turned) attempts.sim.disk().attributes(attempts.path(L"cccc"))->listingRank = -1;

    attempts.prune();

    EXPECT_EQ(attempts.left(), Names{turned ? L"cccc" : L"aaaa"});
  }
}

TEST(pruneAttempts, settles) {
  Attempts attempts;
  for (const wchar_t* name : {L"aaaa", L"bbbb", L"cccc"}) attempts.add(name, 20);
  attempts.prune();
  const Names left = attempts.left();

  attempts.prune();

  EXPECT_EQ(attempts.left(), left);
}

TEST(pruneAttempts, leavesFilesAlone) {
  Attempts attempts;
  attempts.add(L"aaaa", 10);
  attempts.add(L"bbbb", 20);
  attempts.sim.writeFile(attempts.path(L"0123456789abcdef0123456789abcdef"), "a file named like an attempt");
  attempts.sim.writeFile(attempts.path(L"notes.txt"), "");
  attempts.sim.disk().attributes(attempts.path(L"notes.txt"))->lastWriteTime = 99;

  attempts.prune();

  EXPECT_EQ(attempts.left(), (Names{L"0123456789abcdef0123456789abcdef", L"bbbb", L"notes.txt"}));
}

TEST(pruneAttempts, comparesNamesExactly) {
  Attempts attempts;
  attempts.add(L"aaaa", 10);
  attempts.add(L"bbbb", 20);

  attempts.prune(L"AAAA");

  EXPECT_EQ(attempts.left(), Names{L"bbbb"});
}

TEST(pruneAttempts, isSilentWithoutAnAttemptsDirectory) {
  SimOs sim;

  pruneAttempts(sim.stateRoot(), L"current");

  EXPECT_EQ(sim.lines(), Lines{});
  EXPECT_EQ(sim.count(Call::removeEmptyDirectory), 0);
}

TEST(pruneAttempts, isSilentWhereTheDirectoryCannotBeOpened) {
  Attempts attempts;
  attempts.add(L"aaaa", 10);
  attempts.add(L"bbbb", 20);
  attempts.sim.fail(Call::listDirectory);

  attempts.prune();

  EXPECT_EQ(attempts.left(), (Names{L"aaaa", L"bbbb"}));
  EXPECT_EQ(attempts.sim.lines(), Lines{});
}

TEST(pruneAttempts, goesOnWithWhatWasSeenBeforeAListingFailed) {
  struct Case {
    const char* why;
    int fails;  // in so many passes
    Names left;
  };
  const Case cases[] = {
      {"only the first pass is cut: the newest one is not seen there", 1, {L"bbbb"}},
      {"both are cut: what lies behind stays as well", 2, {L"bbbb", L"cccc", L"dddd"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Attempts attempts;
    attempts.add(L"aaaa", 10);
    attempts.add(L"bbbb", 20);
    attempts.add(L"cccc", 30);
    attempts.add(L"dddd", 40);
    attempts.sim.fail(Call::nextEntry, L"cccc").times(c.fails);

    attempts.prune();

    EXPECT_EQ(attempts.left(), c.left);
    EXPECT_EQ(attempts.sim.lines(), Lines{});
  }
}

TEST(pruneAttempts, skipsWhatHasNoReadableStatus) {
  Attempts attempts;
  attempts.add(L"aaaa", 10);
  attempts.add(L"bbbb", 20);
  attempts.add(L"cccc", 30);
  attempts.sim.fail(Call::entryStatus, L"cccc");

  attempts.prune();

  EXPECT_EQ(attempts.left(), (Names{L"bbbb", L"cccc"}));
  EXPECT_EQ(attempts.sim.lines(), Lines{});
}

TEST(pruneAttempts, doesNotKeepWhatHasNoReadableTime) {
  Attempts attempts;
  attempts.add(L"aaaa", 10);
  attempts.add(L"bbbb", 20);
  attempts.sim.fail(Call::entryTime, L"bbbb");

  attempts.prune();

  EXPECT_EQ(attempts.left(), Names{L"aaaa"});
}

// An unread time is not a time of 0, which would be good enough where nothing newer is there.
TEST(pruneAttempts, doesNotKeepTheOnlyOtherOneWhereItHasNoReadableTime) {
  Attempts attempts;
  attempts.add(L"aaaa", 10);
  attempts.add(L"current", 20);
  attempts.sim.fail(Call::entryTime, L"aaaa");

  attempts.prune();

  EXPECT_EQ(attempts.left(), Names{L"current"});
}

TEST(pruneAttempts, looksAnewInItsSecondPass) {
  Attempts attempts;
  attempts.add(L"aaaa", 10);
  attempts.add(L"bbbb", 20);
  attempts.sim.before(
      Call::listDirectory, L"attempts", [&] { attempts.add(L"cccc", 30); }, 1);

  attempts.prune();

  EXPECT_EQ(attempts.left(), Names{L"bbbb"}) << "what came in between was not remembered";
}

TEST(pruneAttempts, removesAttemptsWithAllTheirContents) {
  Attempts attempts;
  attempts.add(L"aaaa", 10);
  attempts.sim.writeFile(attempts.path(L"aaaa\\logs\\old\\runtime.log"), "text");
  attempts.sim.writeFile(attempts.path(L"aaaa\\read-only"), "text");
  attempts.sim.disk().attributes(attempts.path(L"aaaa\\read-only"))->readOnly = true;
  attempts.sim.disk().attributes(attempts.path(L"aaaa"))->lastWriteTime = 10;
  attempts.add(L"bbbb", 20);

  attempts.prune();

  EXPECT_EQ(attempts.left(), Names{L"bbbb"});
  EXPECT_EQ(attempts.sim.lines(), Lines{});
}

TEST(pruneAttempts, removesAnEmptyOneWithoutLookingInside) {
  Attempts attempts;
  attempts.sim.makeDirectory(attempts.path(L"aaaa"));
  attempts.sim.disk().attributes(attempts.path(L"aaaa"))->lastWriteTime = 10;
  attempts.add(L"bbbb", 20);

  attempts.prune();

  EXPECT_EQ(attempts.left(), Names{L"bbbb"});
  EXPECT_EQ(attempts.sim.count(Call::removeDirectoryTree), 0);
}

TEST(pruneAttempts, reportsALockedAttemptOnceAndPrunesTheOthers) {
  Attempts attempts;
  attempts.add(L"aaaa", 10);
  attempts.add(L"bbbb", 15);
  attempts.add(L"cccc", 20);
  attempts.add(L"dddd", 30);
  attempts.sim.holdFile(attempts.path(L"bbbb"), sim::accessReadWrite);

  attempts.prune();

  EXPECT_EQ(attempts.left(), (Names{L"bbbb", L"dddd"}));
  EXPECT_EQ(attempts.sim.lines(),
            Lines{std::string(cannotPrune) +
                  "The process cannot access the file because it is being used by another process."});
  EXPECT_EQ(attempts.sim.names(attempts.path(L"bbbb")), Names{L"boot-v1.json"}) << "nothing inside is touched";
}

TEST(pruneAttempts, reportsAnAttemptOnceInWhichSeveralFilesAreHeld) {
  Attempts attempts;
  attempts.add(L"aaaa", 10);
  attempts.sim.writeFile(attempts.path(L"aaaa\\runtime.log"), "");
  attempts.sim.disk().attributes(attempts.path(L"aaaa"))->lastWriteTime = 10;
  attempts.add(L"bbbb", 20);
  attempts.sim.holdFile(attempts.path(L"aaaa\\boot-v1.json"), sim::accessReadWrite);
  attempts.sim.holdFile(attempts.path(L"aaaa\\runtime.log"), sim::accessReadWrite);

  attempts.prune();

  EXPECT_EQ(attempts.left(), (Names{L"aaaa", L"bbbb"}));
  EXPECT_EQ(attempts.sim.lines().size(), 1u);
}

TEST(pruneAttempts, goesIntoADirectoryOnlyWhereItIsSaidNotToBeEmpty) {
  struct Case {
    const char* why;
    std::uint32_t code;
    bool goesIn;
    Lines lines;
  };
  const Case cases[] = {
      {"not empty", 145, true, {}},
      {"no access", 5, false, {std::string(cannotPrune) + "Access is denied."}},
      {"an error without a text", 3999999, false, {"cannot prune old attempt: Win32 error 3999999"}},
      {"in use",
       32,
       false,
       {std::string(cannotPrune) + "The process cannot access the file because it is being used by another process."}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Attempts attempts;
    attempts.add(L"aaaa", 10);
    attempts.add(L"bbbb", 20);
    attempts.sim.fail(Call::removeEmptyDirectory, L"aaaa", c.code);

    attempts.prune();

    EXPECT_EQ(attempts.sim.count(Call::removeDirectoryTree), c.goesIn ? 1 : 0);
    EXPECT_EQ(attempts.sim.lines(), c.lines);
  }
}

TEST(pruneAttempts, removesALinkAndNothingBehindIt) {
  Attempts attempts;
  attempts.sim.writeFile(L"C:\\Precious\\canary", "alive");
  attempts.sim.disk().attributes(L"C:\\Precious")->lastWriteTime = 15;
  ASSERT_EQ(attempts.sim.disk().makeLink(attempts.path(L"aaaa"), L"C:\\Precious", 10), 0u);
  attempts.add(L"bbbb", 20);
  ASSERT_EQ(attempts.sim.disk().makeLink(attempts.path(L"bbbb\\inside"), L"C:\\Precious", 10), 0u);
  attempts.sim.disk().attributes(attempts.path(L"bbbb"))->lastWriteTime = 20;
  attempts.add(L"cccc", 30);

  attempts.prune();

  EXPECT_EQ(attempts.left(), Names{L"cccc"});
  EXPECT_EQ(attempts.sim.read(L"C:\\Precious\\canary"), "alive");
  EXPECT_EQ(attempts.sim.lines(), Lines{});
}

TEST(pruneAttempts, judgesALinkByWhatItLeadsTo) {
  Attempts attempts;
  attempts.sim.makeDirectory(L"C:\\Newest");
  attempts.sim.disk().attributes(L"C:\\Newest")->lastWriteTime = 99;
  ASSERT_EQ(attempts.sim.disk().makeLink(attempts.path(L"aaaa"), L"C:\\Newest", 10), 0u);
  ASSERT_EQ(attempts.sim.disk().makeLink(attempts.path(L"gone"), L"C:\\Nowhere", 10), 0u);
  attempts.add(L"bbbb", 20);

  attempts.prune();

  EXPECT_EQ(attempts.left(), (Names{L"aaaa", L"gone"})) << "a link that leads nowhere is no directory";
}

}  // namespace
}  // namespace launcher_stub
