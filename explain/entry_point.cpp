// launcher-explain.exe.
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "explain/command.h"
#include "os/console.h"
#include "os/running_programs.h"
#include "os/this_process.h"

namespace {

using launcher_stub::explain::ProgramFinding;

std::optional<std::vector<ProgramFinding>> programsIn(const std::wstring& directory) {
  auto running = launcher_stub::os::programsRunningFrom(directory);
  if (!running) return std::nullopt;
  std::vector<ProgramFinding> programs;
  for (auto& program : *running) programs.push_back({program.processId, std::move(program.path)});
  return programs;
}

}  // namespace

// Declared by hand: no Windows header is included outside of os/.
extern "C" int wmain(int count, wchar_t** arguments);

extern "C" int wmain(int count, wchar_t** arguments) {
  namespace os = launcher_stub::os;
  namespace explain = launcher_stub::explain;
  const std::vector<std::wstring> words(std::next(arguments, count > 0 ? 1 : 0), std::next(arguments, count));
  const explain::Answer answer = explain::answer(words, {.looksAtCopies = false, .programsIn = programsIn});
  const bool written =
      os::writeText(os::Stream::output, answer.output) && os::writeText(os::Stream::errors, answer.errors);
  return written ? answer.exitCode : explain::exitUsage;
}
