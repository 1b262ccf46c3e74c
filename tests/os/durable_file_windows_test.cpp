#include "os/durable_file.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <memory>
#include <thread>

#include "os/clock.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::os {
namespace {

using tests::TempDirectory;

class HeldFile {
 public:
  HeldFile(const std::wstring& path, DWORD sharing)
      : handle_(CreateFileW(path.c_str(), GENERIC_READ, sharing, nullptr, OPEN_EXISTING, 0, nullptr)) {}
  HeldFile(const HeldFile&) = delete;
  HeldFile& operator=(const HeldFile&) = delete;
  ~HeldFile() { CloseHandle(handle_); }
  bool isOpen() const { return handle_ != INVALID_HANDLE_VALUE; }

 private:
  HANDLE handle_;
};

TEST(readStateFile, acceptsUpTo65536Bytes) {
  const TempDirectory directory;
  struct Case {
    const char* why;
    std::size_t size;
    bool accepted;
  };
  const Case cases[] = {{"empty", 0, true},
                        {"one byte", 1, true},
                        {"the largest", 65536, true},
                        {"one too many", 65537, false},
                        {"far too large", 200'000, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const std::string written(c.size, 'x');
    tests::writeFile(directory / L"state", written);
    std::string contents = "before";
    EXPECT_EQ(readStateFile(directory / L"state", contents), c.accepted);
    EXPECT_EQ(contents, c.accepted ? written : "before");
  }
}

TEST(readStateFile, returnsBytesUnchanged) {
  const TempDirectory directory;
  const std::string bytes("\xEF\xBB\xBF{\r\n\x1A\0\xFF}", 10);
  tests::writeFile(directory / L"state", bytes);
  std::string contents;

  EXPECT_TRUE(readStateFile(directory / L"state", contents));

  EXPECT_EQ(contents, bytes);
}

TEST(readStateFile, failsForWhatIsMissingOrNoFile) {
  const TempDirectory directory;
  std::string contents = "before";
  EXPECT_FALSE(readStateFile(directory / L"none", contents));
  EXPECT_FALSE(readStateFile(directory / L"none\\below", contents));
  EXPECT_FALSE(readStateFile(directory.path(), contents));
  EXPECT_EQ(contents, "before");
}

// A stream that breaks off stands for a disk that fails in the middle of a file.
TEST(readStateFile, failsWhereReadingBreaksOff) {
  const std::wstring path = L"\\\\.\\pipe\\launcher-test-" + std::to_wstring(GetCurrentProcessId());
  HANDLE pipe = CreateNamedPipeW(path.c_str(), PIPE_ACCESS_OUTBOUND, PIPE_TYPE_BYTE, 1, 4096, 4096, 0, nullptr);
  ASSERT_NE(pipe, INVALID_HANDLE_VALUE);
  DWORD written = 0;
  std::thread writer([&] {
    ConnectNamedPipe(pipe, nullptr);
    WriteFile(pipe, "half", 4, &written, nullptr);
    CloseHandle(pipe);
  });
  std::string contents = "before";

  EXPECT_FALSE(readStateFile(path, contents));

  writer.join();
  EXPECT_EQ(written, 4u);
  EXPECT_EQ(contents, "before");
}

TEST(readStateFile, readsWhileOthersHaveTheFileOpenForWriting) {
  const TempDirectory directory;
  const std::wstring path = directory / L"state";
  tests::writeFile(path, "shared");
  HANDLE writer =
      CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(writer, INVALID_HANDLE_VALUE);
  std::string contents;

  EXPECT_TRUE(readStateFile(path, contents));

  EXPECT_EQ(contents, "shared");
  CloseHandle(writer);
}

TEST(readStateFile, failsWhereAnotherSharesNothing) {
  const TempDirectory directory;
  tests::writeFile(directory / L"state", "mine");
  const HeldFile held(directory / L"state", 0);
  ASSERT_TRUE(held.isOpen());
  std::string contents = "before";

  EXPECT_FALSE(readStateFile(directory / L"state", contents));

  EXPECT_EQ(contents, "before");
}

TEST(replaceFileDurably, createsAndReplacesWithExactlyTheseBytes) {
  const TempDirectory directory;
  const std::wstring target = directory / L"boot-v1.json";
  for (const std::string& contents :
       {std::string("{}"), std::string(65536, 'x'), std::string(), std::string("\0\n", 2)}) {
    EXPECT_TRUE(replaceFileDurably(target, contents));
    EXPECT_EQ(tests::readFile(target), contents);
    EXPECT_EQ(tests::namesIn(directory.path()), std::vector<std::wstring>{L"boot-v1.json"});
  }
}

TEST(replaceFileDurably, refusesMoreThan65536BytesAndCreatesNothing) {
  const TempDirectory directory;
  EXPECT_FALSE(replaceFileDurably(directory / L"boot-v1.json", std::string(65537, 'x')));
  EXPECT_TRUE(tests::namesIn(directory.path()).empty());
}

TEST(replaceFileDurably, failsAtOnceWhereTheDirectoryIsMissing) {
  const TempDirectory directory;
  const std::uint64_t start = monotonicMilliseconds();
  EXPECT_FALSE(replaceFileDurably(directory / L"none\\boot-v1.json", "{}"));
  EXPECT_LT(monotonicMilliseconds() - start, 1000u);
}

TEST(replaceFileDurably, givesUpAfterTwoSecondsOfATargetHeldOpen) {
  const TempDirectory directory;
  const std::wstring target = directory / L"boot-v1.json";
  tests::writeFile(target, "old");
  {
    const HeldFile held(target, FILE_SHARE_READ | FILE_SHARE_WRITE);  // deleting is not shared
    ASSERT_TRUE(held.isOpen());
    const std::uint64_t start = monotonicMilliseconds();
    EXPECT_FALSE(replaceFileDurably(target, "new"));
    const std::uint64_t elapsed = monotonicMilliseconds() - start;
    EXPECT_GE(elapsed, 2000u);
    EXPECT_LT(elapsed, 3500u);
  }
  EXPECT_EQ(tests::readFile(target), "old");
  EXPECT_EQ(tests::namesIn(directory.path()), std::vector<std::wstring>{L"boot-v1.json"});
}

TEST(replaceFileDurably, succeedsOnceTheTargetIsReleased) {
  const TempDirectory directory;
  const std::wstring target = directory / L"boot-v1.json";
  tests::writeFile(target, "old");
  auto held = std::make_unique<HeldFile>(target, FILE_SHARE_READ);
  ASSERT_TRUE(held->isOpen());
  std::thread releaser([&] {
    sleepMilliseconds(600);
    held.reset();
  });
  const std::uint64_t start = monotonicMilliseconds();

  EXPECT_TRUE(replaceFileDurably(target, "new"));

  EXPECT_GE(monotonicMilliseconds() - start, 500u);
  releaser.join();
  EXPECT_EQ(tests::readFile(target), "new");
}

// The system says "access denied" (5) here, and so it is tried as long as for a file that is held open.
TEST(replaceFileDurably, triesTheWholeTimeForATargetThatIsADirectory) {
  const TempDirectory directory;
  tests::makeDirectory(directory / L"boot-v1.json");
  const std::uint64_t start = monotonicMilliseconds();

  EXPECT_FALSE(replaceFileDurably(directory / L"boot-v1.json", "new"));

  EXPECT_GE(monotonicMilliseconds() - start, 2000u);
  EXPECT_EQ(tests::namesIn(directory.path()), std::vector<std::wstring>{L"boot-v1.json"});
}

// A reader that opens the name again and again finds one of the two documents each time.
TEST(replaceFileDurably, showsReadersTheOldOrTheNewDocument) {
  const TempDirectory directory;
  const std::wstring target = directory / L"boot-v1.json";
  const std::string first(60'000, 'a');
  const std::string second(30'000, 'b');
  ASSERT_TRUE(replaceFileDurably(target, first));
  bool allReplaced = true;
  std::atomic<bool> done = false;
  std::thread writer([&] {
    for (int count = 0; count < 30; ++count) {
      allReplaced = replaceFileDurably(target, count % 2 == 0 ? second : first) && allReplaced;
    }
    done = true;
  });
  int reads = 0;
  while (!done) {
    std::string contents;
    sleepMilliseconds(5);                            // a name that is open all the time could never be replaced
    if (!readStateFile(target, contents)) continue;  // refused for a moment: not torn
    ++reads;
    if (contents != first && contents != second) {
      ADD_FAILURE() << "torn: " << contents.size() << " bytes";
      break;
    }
  }
  writer.join();
  EXPECT_TRUE(allReplaced);
  EXPECT_GT(reads, 10);
}

TEST(removeFile, isSatisfiedWhenTheFileIsGone) {
  const TempDirectory directory;
  tests::writeFile(directory / L"pending-v1.json", "x");
  EXPECT_TRUE(removeFile(directory / L"pending-v1.json"));
  EXPECT_FALSE(tests::exists(directory / L"pending-v1.json"));
  EXPECT_TRUE(removeFile(directory / L"pending-v1.json")) << "there was none";
  EXPECT_TRUE(removeFile(directory / L"none\\pending-v1.json")) << "not even its directory";
}

TEST(removeFile, failsWhereTheFileStays) {
  const TempDirectory directory;
  tests::writeFile(directory / L"pending-v1.json", "x");
  const HeldFile held(directory / L"pending-v1.json", FILE_SHARE_READ);
  ASSERT_TRUE(held.isOpen());
  EXPECT_FALSE(removeFile(directory / L"pending-v1.json"));
  EXPECT_TRUE(tests::exists(directory / L"pending-v1.json"));
  EXPECT_FALSE(removeFile(directory.path())) << "a directory";
}

}  // namespace
}  // namespace launcher_stub::os
