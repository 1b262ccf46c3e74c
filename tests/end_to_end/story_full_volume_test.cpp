// A state root on a volume that has no space left. Each test has a small volume of its own, which volumes.sh mounts
// for it before the run under Wine. (On Windows the same tests would take small virtual disks that were attached under
// these letters.)

#include <windows.h>

#include <gtest/gtest.h>

#include <stdexcept>

#include "story.h"
#include "tests/end_to_end/error_window.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Slots = std::vector<std::string>;
using Lines = std::vector<std::string>;

const std::string boxText = "cannot write launcher state";

StateText stateText(std::uint32_t starts) {
  return {.generation = 5, .active = "aaaa", .candidate = "bbbb", .attemptCount = starts};
}

const std::string previousState = StateText{.generation = 4, .active = "aaaa"}.json();

// A volume that can be filled to its last byte.
class Volume {
 public:
  explicit Volume(wchar_t letter) : root_(std::wstring(1, letter) + L":\\") { makeSpace(); }
  ~Volume() { makeSpace(); }
  Volume(const Volume&) = delete;
  Volume& operator=(const Volume&) = delete;

  bool isThere() const { return GetFileAttributesW(root_.c_str()) != INVALID_FILE_ATTRIBUTES; }
  std::wstring stateRoot() const { return root_ + L"r\u00f6\u00f6t \xd83c\xdf88"; }

  bool keepsFlags() const {
    DWORD flags = 0;
    return GetVolumeInformationW(root_.c_str(), nullptr, 0, nullptr, nullptr, &flags, nullptr, 0) != 0;
  }

  std::uint64_t freeBytes() const {
    ULARGE_INTEGER free = {};
    if (!GetDiskFreeSpaceExW(root_.c_str(), &free, nullptr, nullptr)) fail("no free space known");
    return free.QuadPart;
  }

  void fill() const {
    constexpr std::uint64_t largest = 64U << 20;  // more means that this is no volume of ours
    if (freeBytes() > largest) throw std::runtime_error("the volume is not a small one");
    const std::string block(4096, 'x');
    HANDLE raw = CreateFileW(filler().c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (raw == INVALID_HANDLE_VALUE) fail("cannot fill the volume");
    const Handle file(raw);
    DWORD written = 0;
    while (WriteFile(file.get(), block.data(), static_cast<DWORD>(block.size()), &written, nullptr) && written > 0) {}
  }

  void makeSpace() const { DeleteFileW(filler().c_str()); }

 private:
  std::wstring filler() const { return root_ + L"filler"; }

  std::wstring root_;
};

// A candidate and two generations of the state on the volume.
struct Update {
  Update(const Volume& volume, const std::string& script) : installation(volume.stateRoot()) {
    installation.installSeed(fails);
    installation.installSlot("aaaa", endsTheRun(9));
    installation.installSlot("bbbb", script);
    installation.writeState(stateText(0).json());
    installation.writePreviousState(previousState);
  }

  // All that a failed write may not change.
  void expectUntouched(std::uint32_t starts) const {
    EXPECT_EQ(installation.state(), stateText(starts).json());
    EXPECT_EQ(installation.previousState(), previousState);
    EXPECT_EQ(installation.temporaryFiles().size(), 0U);
  }

  Installation installation;
};

// Skips the test, saying why, where the volume is missing.
#define REQUIRE_VOLUME(volume)                                                                                 \
  if (!(volume).isThere()) GTEST_SKIP() << "no volume for this test: mounting one needs root, see volumes.sh"; \
  ASSERT_TRUE((volume).keepsFlags()) << "the system tells nothing of the volume"

TEST(storyFullVolume, atTheLaunchEndsTheRunAfterThirtySecondsAndLosesNothing) {
  requireDesktop();
  const Volume volume(L's');
  REQUIRE_VOLUME(volume);
  Update update(volume, staysForever);
  Installation& installation = update.installation;
  volume.fill();
  const Lines expected = {"launch transition write failed; retrying", boxText,
                          "launch transition write failed for 30 seconds; exiting"};

  CreationCount created(installation.stateRoot());
  const std::uint64_t start = milliseconds();
  Launcher launcher = installation.start();
  ASSERT_TRUE(launcher.printsWithin(expected.back(), writeFailureLimitMs + patienceMs));
  const std::uint64_t gaveUpAfter = milliseconds() - start;
  dismissBox(launcher, boxText);

  EXPECT_EQ(launcher.exitCode(), 1U);
  EXPECT_EQ(launcher.lines(), expected);
  EXPECT_EQ(installation.startedSlots(), Slots{});
  update.expectUntouched(0);
  expectBetween("from the start to the last line", gaveUpAfter, writeFailureLimitMs, writeFailureLimitMs + 2 * slackMs);
  figures("gave up after " + std::to_string(gaveUpAfter) + " ms, " +
          std::to_string(created.beginningWith(L"boot-v1.json.tmp-")) + " tries; lines: " + joined(launcher.lines()) +
          "; exit code 1");
}

TEST(storyFullVolume, thatGetsSpaceAgainLetsTheLaunchGoOn) {
  const Volume volume(L't');
  REQUIRE_VOLUME(volume);
  Update update(volume, staysForever);
  volume.fill();
  Launcher launcher = update.installation.start();
  ASSERT_TRUE(launcher.printsWithin("launch transition write failed; retrying"));
  update.expectUntouched(0);

  volume.makeSpace();

  ASSERT_TRUE(update.installation.startsWithin(1));
  EXPECT_EQ(update.installation.startedSlots(), Slots{"bbbb"});
  update.expectUntouched(1);
  EXPECT_EQ(launcher.lines(), Lines{"launch transition write failed; retrying"});
}

TEST(storyFullVolume, atThePromotionDelaysItAndLosesNothing) {
  const Volume volume(L'u');
  REQUIRE_VOLUME(volume);
  Update update(volume, "ready\nhealthy\nwait 240000 finish\nexit 4\n");
  Installation& installation = update.installation;
  Launcher launcher = installation.start();
  ASSERT_TRUE(waitUntil([&] { return installation.log("bbbb").text().find("wait") != std::string::npos; }));
  volume.fill();
  ASSERT_TRUE(launcher.printsWithin("tick metadata write failed; retrying", soakMs + patienceMs));
  const std::uint64_t lineAfter = milliseconds() - timeOf(installation.log("bbbb"), "healthy");
  update.expectUntouched(1);

  volume.makeSpace();

  const std::string promoted = StateText{.generation = 6, .active = "bbbb", .previous = "aaaa"}.json();
  EXPECT_TRUE(momentOfState(installation, promoted, patienceMs));
  EXPECT_EQ(installation.previousState(), stateText(1).json());
  installation.writeBeside("bbbb", L"finish");
  EXPECT_EQ(launcher.exitCode(), 4U);
  EXPECT_EQ(launcher.lines(), Lines{"tick metadata write failed; retrying"});
  expectBetween("from the health mark to the line", lineAfter, soakMs, soakMs + slackMs);
  figures("line " + std::to_string(lineAfter) + " ms after the health mark; promoted when there was space again");
}

TEST(storyFullVolume, atTheRuntimesEndEndsTheRunAfterThirtySecondsAndLosesNothing) {
  requireDesktop();
  const Volume volume(L'v');
  REQUIRE_VOLUME(volume);
  Update update(volume, "wait 60000 go\ncrash\n");
  Installation& installation = update.installation;
  Launcher launcher = installation.start();
  ASSERT_TRUE(waitUntil([&] { return installation.log("bbbb").text().find("wait") != std::string::npos; }));
  volume.fill();
  const Lines expected = {"exit transition write failed; retrying", boxText,
                          "exit transition write failed for 30 seconds; exiting"};

  CreationCount created(installation.stateRoot());
  const std::uint64_t end = milliseconds();
  installation.writeBeside("bbbb", L"go");
  ASSERT_TRUE(launcher.printsWithin(expected.back(), writeFailureLimitMs + patienceMs));
  const std::uint64_t gaveUpAfter = milliseconds() - end;
  dismissBox(launcher, boxText);

  EXPECT_EQ(launcher.exitCode(), 1U);
  EXPECT_EQ(launcher.lines(), expected);
  EXPECT_EQ(installation.startedSlots(), Slots{"bbbb"});
  update.expectUntouched(1);
  expectBetween("from the crash to the last line", gaveUpAfter, writeFailureLimitMs, writeFailureLimitMs + 2 * slackMs);
  figures("gave up " + std::to_string(gaveUpAfter) + " ms after the crash, " +
          std::to_string(created.beginningWith(L"boot-v1.json.tmp-")) + " tries; lines: " + joined(launcher.lines()) +
          "; exit code 1");
}

}  // namespace
}  // namespace end_to_end
