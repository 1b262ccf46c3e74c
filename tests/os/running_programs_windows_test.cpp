#include "os/running_programs.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>

#include "os/path.h"
#include "tests/os/test_child.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::os {
namespace {

using tests::TempDirectory;
using tests::TestChild;

// The path of the running program with this id, as it is listed for `directory`; empty where it is not.
std::wstring listedPath(const std::wstring& directory, std::uint32_t id) {
  const auto programs = programsRunningFrom(directory);
  if (!programs) return L"no list";
  const auto found = std::ranges::find(*programs, id, &RunningProgram::processId);
  return found == programs->end() ? std::wstring() : found->path;
}

std::wstring thisDirectory() { return parentPath(tests::thisProgram()); }

TEST(programsRunningFrom, namesOneThatRunsFromThereUntilItHasEnded) {
  const TestChild child(tests::action::sleepLong, {});

  EXPECT_EQ(listedPath(thisDirectory(), child.id()), tests::thisProgram());

  child.kill();
  EXPECT_EQ(listedPath(thisDirectory(), child.id()), L"");
}

TEST(programsRunningFrom, leavesThisProcessOut) { EXPECT_EQ(listedPath(thisDirectory(), GetCurrentProcessId()), L""); }

TEST(programsRunningFrom, meansTheDirectoryItselfAndNoneAboveOrBesideIt) {
  const TempDirectory other;
  const TestChild child(tests::action::sleepLong, {});

  EXPECT_EQ(listedPath(parentPath(thisDirectory()), child.id()), L"");
  EXPECT_EQ(listedPath(other.path(), child.id()), L"");
  EXPECT_EQ(listedPath(L"", child.id()), L"");
}

TEST(programsRunningFrom, knowsTheDirectoryByOtherSpellings) {
  const TestChild child(tests::action::sleepLong, {});
  std::wstring capitals = thisDirectory();
  CharUpperW(capitals.data());

  EXPECT_EQ(listedPath(capitals, child.id()), tests::thisProgram());
  EXPECT_EQ(listedPath(thisDirectory() + L"\\", child.id()), tests::thisProgram());
  EXPECT_EQ(listedPath(joinPath(thisDirectory(), L"x\\.."), child.id()), tests::thisProgram());
}

}  // namespace
}  // namespace launcher_stub::os
