#include "slots/install_layout.h"

#include <gtest/gtest.h>

#include <string>

namespace launcher_stub {
namespace {

TEST(buildInstallLayout, findsTheBootstrapAndTheSeedInTheInstallDirectory) {
  struct Case {
    const char* why;
    std::wstring directory, bootstrap, seed;
  };
  const Case cases[] = {
      {"a folder", L"C:\\App", L"C:\\App\\bootstrap-v1.json", L"C:\\App\\seed\\entry-v1.exe"},
      {"the root of a drive", L"C:\\", L"C:\\bootstrap-v1.json", L"C:\\seed\\entry-v1.exe"},
      {"a share", L"\\\\server\\share\\App", L"\\\\server\\share\\App\\bootstrap-v1.json",
       L"\\\\server\\share\\App\\seed\\entry-v1.exe"},
      {"odd characters", L"D:\\\u0416 it's", L"D:\\\u0416 it's\\bootstrap-v1.json",
       L"D:\\\u0416 it's\\seed\\entry-v1.exe"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);

    const InstallLayout layout = buildInstallLayout(c.directory);

    EXPECT_EQ(layout.installDir, c.directory);
    EXPECT_EQ(layout.bootstrapPath, c.bootstrap);
    EXPECT_EQ(layout.seedEntryPath, c.seed);
  }
}

}  // namespace
}  // namespace launcher_stub
