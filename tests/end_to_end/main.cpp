// The end-to-end tests: the real launcher.exe, real processes, real time.

#include <gtest/gtest.h>

extern "C" int wmain(int, wchar_t**);

int wmain(int count, wchar_t** arguments) {
  testing::InitGoogleTest(&count, arguments);
  return RUN_ALL_TESTS();
}
