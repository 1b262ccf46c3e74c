#include <exception>

#include "launcher/launch_sequence.h"
#include "launcher/process_end.h"
#include "os/desktop.h"
#include "os/this_process.h"

// Declared by hand: no Windows header is included outside of os/, and this platform has one calling convention only.
extern "C" int wWinMain(void* instance, void* previousInstance, wchar_t* commandLine, int showCommand);

extern "C" int wWinMain(void* instance, void* previousInstance, wchar_t* /*commandLine*/, int /*showCommand*/) {
  // First of all: who can write beside the executable must not choose the code that runs in it.
  launcher_stub::os::loadLibrariesFromSystemOnly();
  // Our end is the end of the runtime: at log-off it has to be asked before that, for it may have work to save.
  launcher_stub::os::outlastOthersAtLogOff();
  // An exception that arrives here ends the process without a word: the state on disk is whole, and the next start
  // decides anew.
  std::set_terminate([] { launcher_stub::os::endThisProcessQuietly(); });
  return launcher_stub::runToEnd([&] { return launcher_stub::run(instance, previousInstance); });
}
