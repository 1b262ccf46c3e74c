#include "os/command_line.h"
#include "tests/fuzz/command_line_input.h"
#include "tests/fuzz/command_line_splitter.h"
#include "tests/fuzz/fuzz_targets.h"

namespace launcher_stub::fuzz {
namespace {

void run(std::string_view bytes) {
  const std::vector<std::wstring> arguments = argumentsOf(bytes);
  const std::wstring line = os::buildCommandLine(L"C:\\a b\\entry-v1.exe", arguments);
  require(splitCommandLine(line) == arguments, "a command line is split back into its arguments");
}

const Registration registered({"command_line", run});

}  // namespace
}  // namespace launcher_stub::fuzz
