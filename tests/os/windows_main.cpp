#include <gtest/gtest.h>

#include "tests/os/test_child.h"

// The wide entry point: a child of the tests must get its arguments unharmed by any code page.
extern "C" int wmain(int count, wchar_t** arguments);

extern "C" int wmain(int count, wchar_t** arguments) {
  if (const std::optional<int> code = launcher_stub::tests::runAction(count, arguments)) return *code;
  testing::InitGoogleTest(&count, arguments);
  return RUN_ALL_TESTS();
}
