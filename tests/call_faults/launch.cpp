#include "tests/call_faults/launch.h"

#include <algorithm>
#include <exception>

#include "os/error_box.h"
#include "os/state_root.h"
#include "tests/call_faults/text.h"

// The launcher's own entry point, under another name.
extern "C" int launcherEntryPoint(void* instance, void* previousInstance, wchar_t* commandLine, int showCommand);

namespace call_faults {
namespace {

constexpr std::string_view listNotice = "reset state root DACL to current user and system principals";
constexpr std::uint64_t firstMoment = 1'000'000'000;

std::vector<std::string> linesOf(const std::string& text, std::vector<std::string>& findings) {
  std::vector<std::string> lines;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  if (text.find('\r') != std::string::npos) findings.emplace_back("a carriage return on standard error");
  std::erase(lines, listNotice);
  return lines;
}

void runEntryPoint(Outcome& outcome) {
  try {
    outcome.exitCode = launcherEntryPoint(nullptr, nullptr, nullptr, 0);
  } catch (const Watch::Endless&) {
    outcome.endless = true;
  } catch (const std::exception&) {
    // Unwound; the process would end with code 3.
  }
}

void takeRuns(const World& world, Watch& watched, Outcome& outcome) {
  for (const std::wstring& survivor : watched.runtimes().survivors()) {
    watched.wrong("a process outlives the launcher: " + toUtf8(survivor));
  }
  for (const Runtimes::Run& run : watched.runtimes().runs()) {
    if (!run.resumed) continue;
    outcome.started.push_back(world.slotOf(run.executable));
    DWORD code = 0;
    if (GetExitCodeProcess(run.process, &code)) outcome.lastRuntimesCode = code;
    if (code == 99) watched.wrong("a runtime could not do what its script says");
  }
}

}  // namespace

Outcome launch(const World& world, const Circumstances& circumstances, const std::optional<Fault>& fault,
               std::uint32_t number) {
  Outcome outcome;
  Watch& watched = watch();
  watched.setLauncherPath(world.launcher());
  watched.runtimes().begin(world.plans());
  if (circumstances.leaseHeldMs > 0) watched.hold(world.stateRoot() + L"\\launch.lock", circumstances.leaseHeldMs);
  if (circumstances.stateLockHeldMs > 0) {
    watched.hold(world.stateRoot() + L"\\state.lock", circumstances.stateLockHeldMs);
  }

  watched.begin(circumstances, fault, number);
  runEntryPoint(outcome);
  watched.end();
  launcher_stub::os::resetErrorBoxForTests();  // as at the end of a process, which waits for the box
  watched.boxIsDone();
  launcher_stub::os::resetStateRootForTests();
  watched.letGo();

  watched.giveBackTheRest();
  takeRuns(world, watched, outcome);
  outcome.lastedMs = watched.now() - firstMoment;
  outcome.refused = watched.refused();
  outcome.calls = watched.calls();
  outcome.boxes = watched.boxes();
  outcome.findings = watched.findings();
  outcome.lines = linesOf(watched.text(), outcome.findings);
  outcome.places = watched.places();
  return outcome;
}

std::string join(const std::vector<std::string>& list, std::string_view between) {
  std::string text;
  for (const std::string& one : list) text.append(text.empty() ? "" : between).append(one);
  return text;
}

}  // namespace call_faults
