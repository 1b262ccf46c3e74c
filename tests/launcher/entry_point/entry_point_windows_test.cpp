// The entry point among system calls that can be watched, with a launch sequence of our own in the real one's place.

#include <gtest/gtest.h>

#include "launcher/launch_sequence.h"
#include "tests/os/faults/replaced_calls.h"
#include "tests/support/standard_error_capture.h"

// The entry point as it is, under a name of its own.
extern "C" int launcherEntryPoint(void* instance, void* previousInstance, wchar_t* commandLine, int showCommand);

namespace {

std::vector<std::string> calls;

}  // namespace

namespace launcher_stub {

int run(void* instance, void* previousInstance) {
  EXPECT_TRUE(instance == &calls && previousInstance == nullptr);
  calls.emplace_back("run");
  return 0;
}

namespace {

using namespace launcher_stub::tests;

using Calls = std::vector<std::string>;

class EntryPointTest : public testing::Test {
 protected:
  void SetUp() override {
    calls.clear();
    watchSetDefaultDllDirectories = [](DWORD flags) {
      EXPECT_EQ(flags, DWORD{LOAD_LIBRARY_SEARCH_SYSTEM32});
      calls.emplace_back("libraries");
    };
    watchSetProcessShutdownParameters = [](DWORD level, DWORD) {
      EXPECT_LT(level, 0x280U) << "below the default, which the runtime has";
      calls.emplace_back("level");
    };
    watchPostMessageW = [](auto...) { calls.emplace_back("post"); };
    watchGetMessageW = [](auto...) { calls.emplace_back("get"); };
    fakeSetDefaultDllDirectories = [] { return TRUE; };  // it would hold for the tests as well
    fakeSetProcessShutdownParameters = [] { return TRUE; };
  }
  void TearDown() override { forgetFakes(); }

  static int runEntryPoint() { return launcherEntryPoint(&calls, nullptr, nullptr, 0); }
};

TEST_F(EntryPointTest, takesItsPlaceAtLogOffBeforeAnythingIsStarted) {
  EXPECT_EQ(runEntryPoint(), 0);

  EXPECT_EQ(calls, (Calls{"libraries", "level", "run"}));
}

TEST_F(EntryPointTest, goesOnWithoutAWordWhereTheSystemRefuses) {
  fakeSetDefaultDllDirectories = [] { return FALSE; };
  fakeSetProcessShutdownParameters = [] { return FALSE; };
  const StandardErrorCapture errors;

  EXPECT_EQ(runEntryPoint(), 0);

  EXPECT_EQ(calls.back(), "run");
  EXPECT_EQ(errors.text(), "");
}

}  // namespace
}  // namespace launcher_stub
