// The script's commands.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "handles.h"
#include "launcher_client.h"

namespace sample_runtime {

// All that commands work with.
struct Runtime {
  launcher_client::Launch launch;
  bool launched = false;  // false: started by hand, without a launcher
  int start = 0;          // number of this start of this executable
  std::vector<std::wstring> arguments;
  std::vector<HandleFound> handles;  // as they were at the start of the process
};

// Exit codes of a script that cannot be carried out.
constexpr int badScript = 64;
constexpr int waitedInVain = 65;
constexpr int lostPatience = 66;

// Carries out one line of the script; "exit" and "crash" do not return. A command that fails notes it in the log and
// the script goes on, except for a line that makes no sense and for a wait in vain: these end the process.
void carryOut(Runtime& runtime, std::string_view line);

}  // namespace sample_runtime
