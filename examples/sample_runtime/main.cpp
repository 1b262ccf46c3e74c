// A runtime that does what a script beside it says. README.md describes the script's language.

#include <windows.h>

#include <shellapi.h>

#include "commands.h"
#include "grandchild.h"
#include "journal.h"
#include "script.h"
#include "text.h"

namespace sample_runtime {
namespace {

constexpr std::uintptr_t highestHandle = 4096;  // a fresh process has far fewer than 1000 handles

std::vector<std::wstring> readArguments() {
  std::vector<std::wstring> arguments;
  int count = 0;
  wchar_t** split = CommandLineToArgvW(GetCommandLineW(), &count);
  if (split == nullptr) return arguments;
  for (int index = 1; index < count; ++index) arguments.emplace_back(split[index]);
  LocalFree(split);
  return arguments;
}

// As a runtime does that knows nothing of virus scanners: one try.
void readRecordOnce() {
  wchar_t directory[4096] = {};
  if (GetEnvironmentVariableW(L"QUORVEX_BOOT_ATTEMPT_DIR", directory, 4096) == 0) return;
  if (readText(std::wstring(directory) + L"\\boot-v1.json").empty()) ExitProcess(lostPatience);
}

int run() {
  Runtime runtime;
  runtime.handles = probeHandles(highestHandle);  // before anything here opens one
  runtime.arguments = readArguments();
  if (isGrandchild(runtime.arguments)) return runGrandchild(runtime.arguments);

  const std::string script = readText(executableDirectory() + L"\\script.txt");
  if (isImpatient(script)) readRecordOnce();
  runtime.launched = launcher_client::readLaunch(runtime.launch);
  const std::wstring directory = runtime.launched ? runtime.launch.attemptDirectory : executableDirectory();
  setJournal(directory + L"\\runtime.log");
  if (runtime.launched) (void)launcher_client::keepLeaseFromChildren(runtime.launch);  // the report shows the outcome
  runtime.start = countStart(runtime.launch.nonce);

  note("start", std::to_string(runtime.start));
  note("pid", std::to_string(GetCurrentProcessId()));
  note("slot", runtime.launched ? runtime.launch.slot : "none");
  note("nonce", runtime.launched ? runtime.launch.nonce : "none");
  for (const std::string& line : linesForStart(script, runtime.start)) carryOut(runtime, line);
  return 0;
}

}  // namespace
}  // namespace sample_runtime

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) { return sample_runtime::run(); }
