#include "os/file_status.h"

#include <gtest/gtest.h>

#include "tests/os/contract/contract_world.h"

namespace launcher_stub::os {
namespace {

using contract::World;

TEST(pathStatus, tellsDirectoriesFilesAndNothingApart) {
  World world;
  world.makeDirectory(world / L"directory");
  world.writeFile(world / L"file", "x");
  world.writeFile(world / L"held", "x");
  world.hold(world / L"held", contract::shareNothing);
  struct Case {
    const char* why;
    std::wstring path;
    PathStatus status;
  };
  const Case cases[] = {
      {"a directory", world / L"directory", PathStatus::directory},
      {"a directory with a separator behind it", world / L"directory\\", PathStatus::directory},
      {"a directory in the other case", world / L"DIRECTORY", PathStatus::directory},
      {"a root", L"C:\\", PathStatus::directory},
      {"a file", world / L"file", PathStatus::other},
      {"a file, with a slash", world.directory() + L"/file", PathStatus::other},
      {"a file that another has for itself", world / L"held", PathStatus::other},
      {"a missing file: error 2", world / L"none", PathStatus::missing},
      {"a missing directory above: error 3", world / L"none\\below", PathStatus::missing},
      {"a file stands where the directory should: error 3", world / L"file\\below", PathStatus::missing},
      {"no path at all: error 3", L"", PathStatus::missing},
      {"a name that no file can have: another error", world / L"a|b", PathStatus::unknown},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(pathStatus(c.path), c.status);
    EXPECT_EQ(pathIsPresent(c.path), c.status == PathStatus::directory || c.status == PathStatus::other);
    EXPECT_EQ(pathIsMissing(c.path), c.status == PathStatus::missing);
  }
}

TEST(pathStatus, followsLinks) {
  World world;
  world.makeDirectory(world / L"target");
  world.writeFile(world / L"target\\file", "x");
  world.makeLink(world / L"link", world / L"target");

  EXPECT_EQ(pathStatus(world / L"link"), PathStatus::directory);
  EXPECT_EQ(pathStatus(world / L"link\\file"), PathStatus::other);
  EXPECT_EQ(pathStatus(world / L"link\\none"), PathStatus::missing);
}

TEST(pathStatus, followsWhatHappensMeanwhile) {
  World world;
  EXPECT_TRUE(pathIsMissing(world / L"marker"));
  world.writeFile(world / L"marker", "");
  EXPECT_TRUE(pathIsPresent(world / L"marker"));
  world.removeFile(world / L"marker");
  EXPECT_TRUE(pathIsMissing(world / L"marker"));
}

}  // namespace
}  // namespace launcher_stub::os
