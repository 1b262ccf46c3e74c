// What this process writes to its standard error stream, for tests that run as Windows programs.
#pragma once

#include <string>

#include "tests/support/windows_temp_directory.h"

namespace launcher_stub::tests {

// While it lives, the process's standard error stream leads into a file of its own.
class StandardErrorCapture {
 public:
  StandardErrorCapture();
  StandardErrorCapture(const StandardErrorCapture&) = delete;
  StandardErrorCapture& operator=(const StandardErrorCapture&) = delete;
  ~StandardErrorCapture();

  // All bytes so far.
  std::string text() const;

 private:
  TempDirectory directory_;
  void* file_;
  void* previous_;
};

}  // namespace launcher_stub::tests
