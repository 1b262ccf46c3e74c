// Pruning on real directories: what the system lists, which times it keeps, what it lets be removed.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "slots/attempt_pruning.h"
#include "tests/support/standard_error_capture.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub {
namespace {

using Names = std::vector<std::wstring>;

constexpr unsigned long long someDay = 133'000'000'000'000'000;  // 100 ns since 1601

class AttemptPruningTest : public testing::Test {
 protected:
  AttemptPruningTest() { tests::makeDirectory(root_ / L"attempts"); }

  std::wstring attempt(const std::wstring& name) { return root_ / (L"attempts\\" + name); }

  // `age`: in units of 100 ns before a certain day. The time comes last: what is put into a directory changes it.
  void add(const std::wstring& name, unsigned long long age, bool full = true) {
    tests::makeDirectory(attempt(name));
    if (full) tests::writeFile(attempt(name) + L"\\boot-v1.json", "{}");
    tests::setLastWriteTime(attempt(name), someDay - age);
  }

  Names left() { return tests::namesIn(root_ / L"attempts"); }

  tests::TempDirectory root_;
};

TEST_F(AttemptPruningTest, keepsTheCurrentAndTheNewestOtherByTheHundredNanosecond) {
  add(L"current", 1'000);
  add(L"older", 2);
  add(L"newest", 1);
  add(L"oldest", 900, /*full=*/false);

  pruneAttempts(root_.path(), L"current");

  EXPECT_EQ(left(), (Names{L"current", L"newest"}));
}

TEST_F(AttemptPruningTest, leavesFilesAlone) {
  add(L"aaaa", 1);
  tests::writeFile(attempt(L"bbbb"), "a file named like an attempt");

  pruneAttempts(root_.path(), L"current");

  EXPECT_EQ(left(), (Names{L"aaaa", L"bbbb"}));
}

TEST_F(AttemptPruningTest, saysNothingWhereThereAreNoAttempts) {
  const tests::StandardErrorCapture errors;

  pruneAttempts(root_ / L"missing", L"current");

  EXPECT_EQ(errors.text(), "");
}

TEST_F(AttemptPruningTest, removesReadOnlyFilesAndWholeTrees) {
  add(L"newest", 1);
  add(L"old", 2);
  tests::makeDirectory(attempt(L"old") + L"\\logs");
  tests::writeFile(attempt(L"old") + L"\\logs\\one", "text");
  tests::setAttributes(attempt(L"old") + L"\\logs\\one", 1);
  tests::setLastWriteTime(attempt(L"old"), someDay - 2);

  pruneAttempts(root_.path(), L"current");

  EXPECT_EQ(left(), Names{L"newest"});
}

// Windows removes the link. Wine cannot remove a link to a directory that holds something, and gives a line for it.
TEST_F(AttemptPruningTest, neverTouchesWhatLiesBehindALink) {
  tests::makeDirectory(root_ / L"precious");
  tests::writeFile(root_ / L"precious\\canary", "alive");
  add(L"newest", 1);
  add(L"old", 2);
  tests::makeDirectoryLink(attempt(L"old") + L"\\link", root_ / L"precious");
  tests::makeDirectoryLink(attempt(L"linked attempt"), root_ / L"precious");
  tests::setLastWriteTime(root_ / L"precious", someDay - 3);
  tests::setLastWriteTime(attempt(L"old"), someDay - 2);

  const tests::StandardErrorCapture errors;
  pruneAttempts(root_.path(), L"current");

  EXPECT_EQ(tests::readFile(root_ / L"precious\\canary"), "alive");
  EXPECT_TRUE(tests::exists(attempt(L"newest")));
  if (!tests::runsUnderWine()) {
    EXPECT_EQ(left(), Names{L"newest"});
    EXPECT_EQ(errors.text(), "");
  }
}

}  // namespace
}  // namespace launcher_stub
