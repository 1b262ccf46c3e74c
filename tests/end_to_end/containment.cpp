#include "tests/end_to_end/containment.h"

#include <windows.h>

#include <sstream>

namespace end_to_end {
namespace {

std::wstring probeProgram() {
  const std::wstring runtime = sampleRuntime();
  return runtime.substr(0, runtime.find_last_of(L'\\') + 1) + L"inside_probe.exe";
}

RuntimeLog reportAt(const std::wstring& path) { return RuntimeLog(splitLines(readFile(path))); }

HandleSeen handleIn(const std::string& line) {
  HandleSeen handle;
  std::string inheritable;
  std::string standard;
  std::istringstream words(line);
  words >> handle.value >> inheritable >> standard >> handle.kind >> handle.access >> std::ws;
  std::getline(words, handle.name);
  handle.inheritable = inheritable == "inheritable";
  handle.standard = standard == "standard";
  return handle;
}

}  // namespace

void ContainmentTest::SetUp() {
  installation_.installSeed("");
  copyFile(probeProgram(), installation_.slotDirectory("seed") + L"\\entry-v1.exe");
}

Launcher ContainmentTest::launch(const std::wstring& mode, LauncherStart start) {
  DeleteFileW(reportFile().c_str());
  start.arguments = L"\"" + reportFile() + L"\" " + mode;
  return installation_.start(start);
}

bool ContainmentTest::reports() const {
  return waitUntil([&] { return isPresent(reportFile()); });
}

RuntimeLog ContainmentTest::report() const { return reportAt(reportFile()); }

RuntimeLog ContainmentTest::reportOfProbeAlone(const LauncherStart& given, const std::wstring& mode) const {
  const std::wstring file = installation_.scratch() + L"\\alone.txt";
  DeleteFileW(file.c_str());
  const Process probe({.executable = installation_.slotDirectory("seed") + L"\\entry-v1.exe",
                       .commandLineTail = L"\"" + file + L"\" " + mode,
                       .currentDirectory = installation_.scratch(),
                       .environment = environmentWith(given.variables),
                       .inherited = given.inherited});
  EXPECT_EQ(probe.exitCode(), 0U);
  return reportAt(file);
}

std::vector<HandleSeen> handlesIn(const RuntimeLog& report) {
  std::vector<HandleSeen> handles;
  for (const std::string& line : report.all("handle")) handles.push_back(handleIn(line));
  std::erase_if(handles, [](const HandleSeen& handle) { return handle.standard; });
  return handles;
}

std::vector<HandleSeen> inheritedIn(const RuntimeLog& report) {
  std::vector<HandleSeen> handles = handlesIn(report);
  std::erase_if(handles, [](const HandleSeen& handle) { return !handle.inheritable; });
  return handles;
}

}  // namespace end_to_end
