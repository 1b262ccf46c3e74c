// The start of a child that ends by itself, among system calls that can be watched and replaced.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "os/child_process.h"
#include "os/lock_file.h"
#include "tests/os/faults/replaced_calls.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::tests {

class ChildStartTest : public testing::Test {
 protected:
  void SetUp() override {
    wchar_t system[MAX_PATH] = {};
    GetSystemDirectoryW(system, MAX_PATH);
    executable_ = std::wstring(system) + L"\\cmd.exe";
    ASSERT_TRUE(os::openLockFile(lease_, directory_ / L"launch.lock", os::LockWait::none));
  }
  void TearDown() override {
    forgetFakes();
    EXPECT_TRUE(os::endProcessTree(child_));
  }

  bool start() {
    return os::startChild(child_, {executable_, arguments_, directory_ / L"install", directory_ / L"root",
                                   directory_ / L"attempt", lease_.handle.get()});
  }

  const TempDirectory directory_;
  std::wstring executable_;
  const std::vector<std::wstring> arguments_ = {L"/c", L"exit 0"};
  os::LockFile lease_;
  os::ChildProcess child_;
};

}  // namespace launcher_stub::tests
