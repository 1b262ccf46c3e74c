#include "os/path.h"

#include <gtest/gtest.h>

namespace launcher_stub::os {
namespace {

TEST(joinPath, putsOneSeparatorBetweenUnlessThereIsOne) {
  struct Case {
    const char* why;
    std::wstring left, right, joined;
  };
  const Case cases[] = {
      {"plain", L"C:\\root", L"slots", L"C:\\root\\slots"},
      {"left ends in a backslash", L"C:\\root\\", L"slots", L"C:\\root\\slots"},
      {"left ends in a slash", L"C:/root/", L"slots", L"C:/root/slots"},
      {"left is a bare drive", L"C:", L"slots", L"C:slots"},
      {"left ends in a colon but is no bare drive", L"name:", L"slots", L"name:\\slots"},
      {"two characters, the first not a letter", L"1:", L"slots", L"1:\\slots"},
      {"left is empty", L"", L"slots", L"slots"},
      {"right is empty", L"C:\\root", L"", L"C:\\root\\"},
      {"right has separators of its own", L"C:\\p", L"a/b\\c", L"C:\\p\\a/b\\c"},
      {"right is absolute with a drive", L"C:\\root", L"D:\\x", L"D:\\x"},
      {"right is a share", L"C:\\root", L"\\\\server\\share\\x", L"\\\\server\\share\\x"},
      {"right begins with a separator only", L"C:\\root", L"\\x", L"C:\\root\\\\x"},
      {"right has a drive without a separator", L"C:\\root", L"D:x", L"C:\\root\\D:x"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(joinPath(c.left, c.right), c.joined);
  }
}

TEST(isAbsolutePath, needsADriveWithSeparatorOrAnotherRootName) {
  struct Case {
    const char* why;
    std::wstring path;
    bool absolute;
  };
  const Case cases[] = {
      {"drive and backslash", L"D:\\x", true},
      {"drive and slash", L"d:/x", true},
      {"only the root of a drive", L"Z:\\", true},
      {"share", L"\\\\server\\share", true},
      {"share with slashes", L"//server/share", true},
      {"device prefix with a question mark", L"\\\\?\\C:\\x", true},
      {"device prefix with a dot", L"\\\\.\\pipe", true},
      {"drive alone", L"D:", false},
      {"relative to a drive's directory", L"D:x", false},
      {"relative to the current drive", L"\\x", false},
      {"two separators and nothing", L"\\\\", false},
      {"three separators", L"\\\\\\server", false},
      {"a digit is no drive letter", L"1:\\x", false},
      {"a letter beyond ASCII is no drive letter", L"\u0416:\\x", false},
      {"just before the letters", L"@:\\x", false},
      {"just behind the letters", L"{:\\x", false},
      {"plain name", L"state", false},
      {"parent", L"..\\state", false},
      {"empty", L"", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(isAbsolutePath(c.path), c.absolute);
  }
}

TEST(parentPath, endsBeforeTheLastSeparatorsAndStopsAtTheRoot) {
  struct Case {
    const char* why;
    std::wstring path, parent;
  };
  const Case cases[] = {
      {"plain", L"C:\\a\\b", L"C:\\a"},
      {"slashes", L"C:/a/b", L"C:/a"},
      {"a run of separators goes whole", L"C:\\a\\/\\b", L"C:\\a"},
      {"a trailing separator is the last one", L"C:\\a\\", L"C:\\a"},
      {"the root keeps its separator", L"C:\\x", L"C:\\"},
      {"a run behind the root", L"C:\\\\x", L"C:\\"},
      {"the root itself", L"C:\\", L""},
      {"drive alone", L"C:", L""},
      {"relative to a drive's directory", L"C:x", L"C:"},
      {"relative to the current drive", L"\\x", L"\\"},
      {"only a separator", L"\\", L""},
      {"single element", L"state", L""},
      {"two elements", L"a\\b", L"a"},
      {"below a share", L"\\\\server\\share\\x", L"\\\\server\\share\\"},
      {"two below a share", L"\\\\server\\share\\x\\y", L"\\\\server\\share\\x"},
      {"a share", L"\\\\server\\share", L""},
      {"a server", L"\\\\server", L""},
      {"device prefix and drive", L"\\\\?\\C:\\x", L"\\\\?\\C:\\"},
      {"device prefix and the drive's root", L"\\\\?\\C:\\", L""},
      {"device prefix and volume", L"\\\\?\\Volume{1}\\x\\y", L"\\\\?\\Volume{1}\\x"},
      {"device prefix and share", L"\\\\?\\UNC\\server\\share\\x", L"\\\\?\\UNC\\server\\share\\"},
      {"device prefix and a share's mark alone", L"\\\\?\\UNC", L""},
      {"device prefix with a dot", L"\\\\.\\C:\\x", L"\\\\.\\C:\\"},
      {"a server that begins like a device prefix", L"\\\\?x\\share\\y", L"\\\\?x\\share\\"},
      {"a server that begins like the other one", L"\\\\.x\\share\\y", L"\\\\.x\\share\\"},
      {"device prefix and a share alone", L"\\\\?\\UNC\\server\\share", L""},
      {"empty", L"", L""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(parentPath(c.path), c.parent);
  }
}

TEST(parentPath, reachesTheRootOfEveryPathInTheEnd) {
  for (std::wstring path : {L"C:\\a/b\\\\c\\", L"\\\\server\\share\\a\\b", L"\\\\?\\UNC\\s\\t\\a", L"a/b/c", L"///x"}) {
    int steps = 0;
    while (!path.empty() && steps < 20) {
      const std::wstring parent = parentPath(path);
      EXPECT_LT(parent.size(), path.size());
      path = parent;
      ++steps;
    }
    EXPECT_LT(steps, 20);
  }
}

}  // namespace
}  // namespace launcher_stub::os
