#include "os/this_process.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "tests/os/test_child.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::os {
namespace {

namespace action = tests::action;
using tests::ObservedProcess;
using tests::TempDirectory;
using tests::TestChild;

TEST(launcherExecutablePath, isTheFullPathOfThisProgram) {
  const std::wstring path = launcherExecutablePath();
  EXPECT_EQ(path, tests::thisProgram());
  EXPECT_TRUE(path.ends_with(L".exe"));
  EXPECT_TRUE(tests::exists(path));
}

// A launcher that is killed between creating its child and putting it into its job.
TEST(containThisProcess, endsAChildThatHasNoJobYetWhenTheLauncherIsKilled) {
  const TempDirectory directory;
  const TestChild launcher(action::contained, {directory / L"report"});
  const std::vector<std::string> ids = tests::waitForReport(directory / L"report");
  ASSERT_EQ(ids.size(), 1u);
  const ObservedProcess suspended(static_cast<std::uint32_t>(std::stoul(ids[0])));
  ASSERT_TRUE(suspended.isOpen());
  EXPECT_FALSE(suspended.endsWithin(0));

  launcher.kill();

  EXPECT_TRUE(suspended.endsWithin(10'000));
}

// The other side of the test above: it is the containment that ends the child.
TEST(containThisProcess, isWhatEndsIt) {
  const TempDirectory directory;
  const TestChild launcher(action::uncontained, {directory / L"report"});
  const std::vector<std::string> ids = tests::waitForReport(directory / L"report");
  ASSERT_EQ(ids.size(), 1u);
  const ObservedProcess suspended(static_cast<std::uint32_t>(std::stoul(ids[0])));
  ASSERT_TRUE(suspended.isOpen());

  launcher.kill();

  EXPECT_FALSE(suspended.endsWithin(1'000));
}

TEST(endThisProcessQuietly, endsWithThreeAndWithoutAWord) {
  const TempDirectory directory;
  const TestChild child(action::endQuietly, {}, directory / L"stderr");
  EXPECT_EQ(child.waitForExit(20'000), 3u);
  EXPECT_EQ(tests::readFile(directory / L"stderr"), "");
}

TEST(anUncaughtException, unwindsEverythingAndEndsTheProcessWithoutAWord) {
  const TempDirectory directory;
  const TestChild child(action::throwUp, {directory / L"marker"}, directory / L"stderr");
  EXPECT_EQ(child.waitForExit(20'000), 3u);
  EXPECT_EQ(tests::waitForReport(directory / L"marker"), std::vector<std::string>{"unwound"});
  EXPECT_EQ(tests::readFile(directory / L"stderr"), "");
}

}  // namespace
}  // namespace launcher_stub::os
