// The look at a new directory's access list when the system refuses it.
#include <gtest/gtest.h>

#include "os/state_root.h"
#include "tests/os/faults/replaced_calls.h"
#include "tests/support/standard_error_capture.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::os {
namespace {

using namespace launcher_stub::tests;

TEST(listLook, thatFailsIsNoFinding) {
  const TempDirectory directory;
  int looks = 0;
  resetStateRootForTests();
  fakeGetVolumeInformationW = [](LPDWORD flags) {
    *flags = FILE_PERSISTENT_ACLS;
    return TRUE;
  };
  fakeGetSecurityInfo = [&looks](PACL* list, PSECURITY_DESCRIPTOR*) {
    ++looks;
    *list = nullptr;  // what would be a finding
    return DWORD{ERROR_ACCESS_DENIED};
  };
  const StandardErrorCapture errors;

  EXPECT_TRUE(createPrivateDirectory(directory / L"one"));

  forgetFakes();
  EXPECT_EQ(looks, 1);
  EXPECT_EQ(errors.text(), "");
}

}  // namespace
}  // namespace launcher_stub::os
