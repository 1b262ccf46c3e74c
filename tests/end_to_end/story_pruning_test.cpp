// What a start does with the attempt directories of earlier runs.

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "story.h"
#include "tests/end_to_end/scripts.h"
#include "tests/support/windows_temp_directory.h"

namespace end_to_end {
namespace {

using Names = std::vector<std::wstring>;
using Lines = std::vector<std::string>;
using launcher_stub::tests::makeDirectoryLink;
using launcher_stub::tests::runsUnderWine;
using launcher_stub::tests::setLastWriteTime;

constexpr std::uint64_t someTime = 132'000'000'000'000'000;  // a day in 2019, in units of 100 ns
constexpr std::uint64_t oneSecond = 10'000'000;

// Attempts of earlier runs and a seed that ends the run at once.
struct History {
  History() {
    installation.installSeed(endsTheRun(0));
    createDirectories(path({}));
  }

  std::wstring path(const std::wstring& name) const {
    return installation.inRoot(name.empty() ? L"attempts" : L"attempts\\" + name);
  }

  // With a record and something in a directory of its own; the higher `age`, the older.
  void addAttempt(const std::wstring& name, std::uint64_t age) const {
    createDirectories(path(name) + L"\\logs");
    writeFile(path(name) + L"\\boot-v1.json", "{}");
    writeFile(path(name) + L"\\logs\\log.txt", "x");
    setLastWriteTime(path(name), someTime - age * oneSecond);
  }

  std::wstring currentAttempt() const { return toWide(installation.starts().front().nonce); }

  Installation installation;
};

Names sorted(Names names) {
  std::sort(names.begin(), names.end());
  return names;
}

// The line for a directory that could not be removed.
std::string lineFor(DWORD code) {
  wchar_t text[512] = {};
  FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0, text, 512, nullptr);
  std::wstring message = text;
  while (!message.empty() && (message.back() == L'\n' || message.back() == L'\r' || message.back() == L' ')) {
    message.pop_back();
  }
  return "cannot prune old attempt: " + toUtf8(message);
}

TEST(storyPruning, keepsTheNewestAttemptBesideTheCurrentOne) {
  History history;
  history.addAttempt(L"newest", 1);
  history.addAttempt(L"a much older", 400);
  history.addAttempt(L"oldest", 900);
  history.addAttempt(L"z older", 2);
  SetFileAttributesW((history.path(L"oldest") + L"\\logs\\log.txt").c_str(), FILE_ATTRIBUTE_READONLY);

  Launcher launcher = history.installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(history.installation.attempts(), sorted({history.currentAttempt(), L"newest"}));
  EXPECT_TRUE(isPresent(history.path(L"newest") + L"\\logs\\log.txt"));
  EXPECT_EQ(launcher.lines(), Lines{});
}

TEST(storyPruning, leavesFilesAlone) {
  History history;
  const std::wstring named = L"0123456789abcdef0123456789abcdef";  // like an attempt
  writeFile(history.path(named), "a file");
  history.addAttempt(L"older", 2);
  history.addAttempt(L"newest", 1);

  Launcher launcher = history.installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(history.installation.attempts(), sorted({named, history.currentAttempt(), L"newest"}));
  EXPECT_EQ(readFile(history.path(named)), "a file");
  EXPECT_EQ(launcher.lines(), Lines{});
}

TEST(storyPruning, saysNothingOfAMissingDirectory) {
  History history;
  RemoveDirectoryW(history.path({}).c_str());
  ASSERT_FALSE(isPresent(history.path({})));

  Launcher launcher = history.installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(history.installation.attempts(), Names{history.currentAttempt()});
  EXPECT_EQ(launcher.lines(), Lines{});
}

TEST(storyPruning, givesOneLineForALockedAttemptAndRemovesTheOthers) {
  History history;
  for (const wchar_t* name : {L"before", L"locked", L"other"}) history.addAttempt(name, 5);
  history.addAttempt(L"newest", 1);
  const HeldFile held(history.path(L"locked") + L"\\boot-v1.json");

  Launcher launcher = history.installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(history.installation.attempts(), sorted({history.currentAttempt(), L"locked", L"newest"}));
  EXPECT_EQ(launcher.lines(), Lines{lineFor(ERROR_SHARING_VIOLATION)});
  figures("lines: " + joined(launcher.lines()));
}

// A link among the attempts and one inside of an attempt. Windows removes both links; Wine cannot remove a link to a
// full directory, so the links stay there, with one line for each attempt concerned.
TEST(storyPruning, neverTouchesWhatLiesBehindALink) {
  History history;
  const std::wstring outside = history.installation.scratch() + L"\\outside";
  createDirectories(outside + L"\\deep");
  for (const wchar_t* name : {L"\\canary", L"\\deep\\canary"}) writeFile(outside + name, "alive");
  setLastWriteTime(outside, someTime - 100 * oneSecond);
  history.addAttempt(L"newest", 1);
  history.addAttempt(L"with link", 5);
  makeDirectoryLink(history.path(L"with link") + L"\\inner", outside);
  setLastWriteTime(history.path(L"with link"), someTime - 5 * oneSecond);
  makeDirectoryLink(history.path(L"link"), outside);

  Launcher launcher = history.installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  for (const wchar_t* name : {L"\\canary", L"\\deep\\canary"}) EXPECT_EQ(readFile(outside + name), "alive");
  Names expected = {history.currentAttempt(), L"newest"};
  Lines lines;
  if (runsUnderWine()) {
    expected.insert(expected.end(), {L"link", L"with link"});
    lines.assign(2, lineFor(ERROR_DIR_NOT_EMPTY));
  }
  EXPECT_EQ(history.installation.attempts(), sorted(expected));
  EXPECT_EQ(launcher.lines(), lines);
  EXPECT_FALSE(isPresent(history.path(L"with link") + L"\\logs"));
  figures("canaries behind two links alive; lines: " + joined(launcher.lines()));
  for (const wchar_t* name : {L"link", L"with link"}) launcher_stub::tests::removeTree(history.path(name));
}

// "old1" to "old10000", each with a record. Wine looks through the whole directory for each new name, so there the host
// makes them; the shell takes its time, and the last record is the last thing it makes.
void addTenThousandAttempts(const History& history) {
  constexpr int count = 10'000;
  if (!runsUnderWine()) {
    for (int i = 1; i <= count; ++i) {
      const std::wstring attempt = history.path(L"old" + std::to_wstring(i));
      createDirectories(attempt);
      writeFile(attempt + L"\\boot-v1.json", "{}");
    }
    return;
  }
  const std::wstring script =
      L"IFS=; cd $1 && seq 10000 | sed s/^/old/ | xargs mkdir && seq 10000 | sed s,.*,old\\&/boot-v1.json, | xargs "
      L"touch";
  (void)launcher_stub::tests::runHostProgram(L"/bin/sh",
                                             {L"-c", script, L"sh", launcher_stub::tests::hostPath(history.path({}))});
  if (!waitUntil([&] { return isPresent(history.path(L"old10000\\boot-v1.json")); })) fail("no ten thousand attempts");
}

TEST(storyPruning, removesTenThousandOldAttemptsAtOneStart) {
  constexpr std::uint32_t limitMs = 300'000;  // seconds on a quiet machine; each step is a call to Wine's one server
  History history;
  addTenThousandAttempts(history);
  ASSERT_EQ(history.installation.attempts().size(), 10'000U);

  const std::uint64_t start = milliseconds();
  Launcher launcher = history.installation.start();
  ASSERT_TRUE(history.installation.startsWithin(1, limitMs));
  const std::uint64_t untilStart = history.installation.starts().front().time - start;

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(history.installation.attempts().size(), 2U);  // the newest of them, and the current one
  EXPECT_TRUE(isPresent(history.path(history.currentAttempt())));
  EXPECT_EQ(launcher.lines(), Lines{});
  figures("9999 of 10000 attempts removed, and the runtime started " + std::to_string(untilStart) +
          " ms after the launcher");
}

}  // namespace
}  // namespace end_to_end
