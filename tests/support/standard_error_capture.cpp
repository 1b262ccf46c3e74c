#include "tests/support/standard_error_capture.h"

#include <windows.h>

namespace launcher_stub::tests {

StandardErrorCapture::StandardErrorCapture()
    : file_(CreateFileW((directory_ / L"stderr").c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                        CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr)),
      previous_(GetStdHandle(STD_ERROR_HANDLE)) {
  SetStdHandle(STD_ERROR_HANDLE, file_);
}

StandardErrorCapture::~StandardErrorCapture() {
  SetStdHandle(STD_ERROR_HANDLE, previous_);
  CloseHandle(file_);
}

std::string StandardErrorCapture::text() const {
  return readFile(directory_ / L"stderr").value_or("(the capture file cannot be read)");
}

}  // namespace launcher_stub::tests
