#include "os/file_status.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::os {
namespace {

using tests::TempDirectory;

TEST(pathStatus, tellsDirectoriesFilesAndNothingApart) {
  const TempDirectory directory;
  tests::writeFile(directory / L"file", "x");
  struct Case {
    const char* why;
    std::wstring path;
    PathStatus status;
  };
  const Case cases[] = {
      {"directory", directory.path(), PathStatus::directory},
      {"directory with a separator behind it", directory.path() + L"\\", PathStatus::directory},
      {"file", directory / L"file", PathStatus::other},
      {"missing file: error 2", directory / L"none", PathStatus::missing},
      {"missing directory above: error 3", directory / L"none\\below", PathStatus::missing},
      {"a name that no file can have", directory / L"a|b\"<>", PathStatus::unknown},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(pathStatus(c.path), c.status);
    EXPECT_EQ(pathIsPresent(c.path), c.status == PathStatus::directory || c.status == PathStatus::other);
    EXPECT_EQ(pathIsMissing(c.path), c.status == PathStatus::missing);
  }
}

TEST(pathStatus, seesAFileThatAnotherHoldsForItself) {
  const TempDirectory directory;
  const std::wstring path = directory / L"held";
  HANDLE held = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
  ASSERT_NE(held, INVALID_HANDLE_VALUE);

  EXPECT_EQ(pathStatus(path), PathStatus::other);

  CloseHandle(held);
}

TEST(pathStatus, followsLinks) {
  const TempDirectory directory;
  tests::makeDirectory(directory / L"target");
  tests::makeDirectoryLink(directory / L"link", directory / L"target");

  EXPECT_EQ(pathStatus(directory / L"link"), PathStatus::directory);
}

}  // namespace
}  // namespace launcher_stub::os
