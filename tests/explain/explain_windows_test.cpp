// The real launcher-explain.exe beside the real launcher.exe.
#include <gtest/gtest.h>

#include <windows.h>

#include <map>
#include <string>

#include "tests/end_to_end/harness.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

std::wstring programUnderTest() {
  wchar_t path[32768];
  return {path, GetEnvironmentVariableW(L"EXPLAIN_UNDER_TEST", path, 32768)};
}

struct Told {
  std::uint32_t exitCode = 0;
  std::string errors;
  std::string output;
};

// Runs launcher-explain. Its standard output goes to a file, whose bytes are what it wrote.
Told explain(const Installation& installation, const std::wstring& more = {}) {
  const std::wstring outputFile = installation.scratch() + L"\\told.txt";
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  const Handle output(
      CreateFileW(outputFile.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inheritable, CREATE_ALWAYS, 0, nullptr));
  std::wstring commandLine = L"\"" + programUnderTest() + L"\" \"" + installation.directory() + L"\" " + more;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output.get();
  startup.hStdError = output.get();
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process)) {
    fail("cannot start launcher-explain");
  }
  CloseHandle(process.hThread);
  const Handle owned(process.hProcess);
  if (WaitForSingleObject(owned.get(), patienceMs) != WAIT_OBJECT_0) fail("launcher-explain does not end");
  DWORD exitCode = 0;
  GetExitCodeProcess(owned.get(), &exitCode);
  return {exitCode, {}, readFile(outputFile)};
}

bool holds(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Every file under a directory with its content and last-write time. Directories with their times too.
using Picture = std::map<std::wstring, std::string>;
void addToPicture(const std::wstring& directory, Picture& picture) {
  for (const std::wstring& name : listDirectory(directory)) {
    const std::wstring path = directory + L"\\" + name;
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
    const std::uint64_t time =
        (static_cast<std::uint64_t>(data.ftLastWriteTime.dwHighDateTime) << 32) | data.ftLastWriteTime.dwLowDateTime;
    const bool isDirectory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    picture[path] = std::to_string(time) + (isDirectory ? "" : " " + readFile(path));
    if (isDirectory) addToPicture(path, picture);
  }
}

Picture pictureOf(const Installation& installation) {
  Picture picture;
  addToPicture(installation.directory(), picture);
  addToPicture(installation.stateRoot(), picture);
  return picture;
}

TEST(launcherExplain, namesTheCandidateThatTheLauncherThenStartsAndPathsInTheirOwnLetters) {
  Installation installation;
  installation.installSeed(endsTheRun(0));
  installation.installSlot("aaaa", endsTheRun(0));
  installation.installSlot("bbbb", endsTheRun(7));
  installation.writeState(StateText{.generation = 5, .active = "aaaa", .candidate = "bbbb"}.json());
  const Picture before = pictureOf(installation);

  const Told told = explain(installation);
  const Picture after = pictureOf(installation);
  Launcher launcher = installation.start();

  EXPECT_EQ(told.exitCode, 0U);
  EXPECT_TRUE(holds(told.output, "Would start: bbbb, as candidate (start 1 of 3)\n")) << told.output;
  EXPECT_TRUE(holds(told.output, "State root:        " + toUtf8(installation.stateRoot()) + " (from the bootstrap)\n"))
      << told.output;
  EXPECT_TRUE(holds(told.output, "Install directory: " + toUtf8(installation.directory()) + "\n")) << told.output;
  EXPECT_TRUE(holds(told.output, "no program runs from the install directory")) << told.output;
  EXPECT_EQ(after, before);
  EXPECT_EQ(launcher.exitCode(), 7U);
  EXPECT_EQ(installation.startedSlots(), (std::vector<std::string>{"bbbb"}));
}

TEST(launcherExplain, createsNothingForAFirstRunAndSaysThreeWhereNothingWouldStart) {
  Installation installation;

  const Told told = explain(installation, L"--json");

  EXPECT_EQ(told.exitCode, 3U);
  EXPECT_TRUE(holds(told.output, "\"message\":\"No runnable runtime\"")) << told.output;
  EXPECT_TRUE(holds(told.output, "\"programs\":[]")) << told.output;
  EXPECT_FALSE(isPresent(installation.stateRoot()));
}

TEST(launcherExplain, refusesAnUnreadableInstallWithTwo) {
  Installation installation;
  installation.removeBootstrap();

  const Told told = explain(installation);

  EXPECT_EQ(told.exitCode, 2U);
  EXPECT_EQ(told.output, "launcher-explain: missing bootstrap-v1.json\n");
}

// Asked again and again from before the launcher's start until its end: it starts, promotes nothing away and writes
// everything as if nobody looked, and is seen among the running programs.
TEST(launcherExplain, disturbsNoLauncherThatStartsRunsAndEnds) {
  Installation installation;
  installation.installSeed(endsTheRun(0));
  installation.installSlot("aaaa", "ready\nsleep 4000\nexit 9\n");
  installation.writeState(StateText{.generation = 5, .active = "aaaa"}.json());
  installation.writePending(pendingText("cccc", "request-1", 4));

  Launcher launcher = installation.start();
  bool seen = false;
  int looks = 0;
  while (launcher.isRunning() && looks < 500) {
    const Told told = explain(installation);
    EXPECT_EQ(told.exitCode, 0U) << told.output;
    EXPECT_TRUE(holds(told.output, "Would start: aaaa, as active\n")) << told.output;
    seen = seen || holds(told.output, ": " + toUtf8(installation.directory() + L"\\launcher.exe") + "\n");
    ++looks;
  }

  EXPECT_GT(looks, 1);
  EXPECT_TRUE(seen) << "while it ran";
  EXPECT_EQ(launcher.exitCode(), 9U);
  EXPECT_EQ(launcher.lines(), std::vector<std::string>{});
  EXPECT_EQ(installation.startedSlots(), (std::vector<std::string>{"aaaa"}));
  EXPECT_FALSE(installation.hasPending()) << "the launcher has removed the stale request";
  EXPECT_EQ(installation.temporaryFiles(), std::vector<std::wstring>{});
  EXPECT_TRUE(holds(explain(installation).output, ": slot aaaa, ready yes, healthy no, restart not asked\n"));
}

// What others hold without sharing is told as unreadable; the lock files are not even looked at.
TEST(launcherExplain, readsBesideHeldLocksAndTellsAHeldDocument) {
  Installation installation;
  installation.installSeed(endsTheRun(0));
  installation.writeState(StateText{.generation = 5}.json());
  const HeldFile lease(installation.inRoot(L"launch.lock"));
  const HeldFile lock(installation.inRoot(L"state.lock"));
  const Told beside = explain(installation);
  const HeldFile held(installation.inRoot(L"boot-v1.json"));
  const Told without = explain(installation);

  EXPECT_TRUE(holds(beside.output, "  boot-v1.json           valid\n")) << beside.output;
  EXPECT_TRUE(holds(without.output, "  boot-v1.json           cannot be read, or is larger than 65536 bytes\n"))
      << without.output;
}

}  // namespace
}  // namespace end_to_end
