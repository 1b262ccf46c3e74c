#include "os/log.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "tests/support/standard_error_capture.h"

namespace launcher_stub::os {
namespace {

TEST(logLine, writesTheMessageAndOneLineFeed) {
  const tests::StandardErrorCapture capture;

  logLine("first");
  logLine("");
  logLine("\xD0\x96 two\twords");

  EXPECT_EQ(capture.text(), "first\n\n\xD0\x96 two\twords\n");
}

TEST(logLine, isWrittenWhenTheCallReturns) {
  const tests::StandardErrorCapture capture;
  logLine("now");
  EXPECT_EQ(capture.text(), "now\n");  // while the stream is still open
}

TEST(logLine, losesTheLineWhereThereIsNoStream) {
  HANDLE previous = GetStdHandle(STD_ERROR_HANDLE);
  const HANDLE nobodysHandle = reinterpret_cast<HANDLE>(std::uintptr_t{0x7F04});
  for (HANDLE none : std::vector<HANDLE>{nullptr, INVALID_HANDLE_VALUE, nobodysHandle}) {
    SetStdHandle(STD_ERROR_HANDLE, none);
    logLine("nobody hears this");
  }
  SetStdHandle(STD_ERROR_HANDLE, previous);

  const tests::StandardErrorCapture capture;
  logLine("and the next line is written again");
  EXPECT_EQ(capture.text(), "and the next line is written again\n");
}

TEST(logLine, goesOnAfterAReaderThatHasGone) {
  HANDLE reader = nullptr;
  HANDLE writer = nullptr;
  ASSERT_TRUE(CreatePipe(&reader, &writer, nullptr, 0));
  HANDLE previous = GetStdHandle(STD_ERROR_HANDLE);
  CloseHandle(reader);
  SetStdHandle(STD_ERROR_HANDLE, writer);

  logLine("into the void");

  SetStdHandle(STD_ERROR_HANDLE, previous);
  EXPECT_TRUE(CloseHandle(writer));
}

}  // namespace
}  // namespace launcher_stub::os
