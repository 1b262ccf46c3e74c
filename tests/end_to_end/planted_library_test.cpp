// Libraries that somebody has put beside launcher.exe, under names that the system loads while a program runs.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>

#include "tests/end_to_end/error_window.h"
#include "tests/end_to_end/harness.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

// Those of the random source, of windows with themed controls, of text in them, and of input, looked for by bare name.
// (What the executable imports itself is no matter of this: the loader knows those five and takes them from the
// system.) Under Wine the box loads uxtheme; that Wine prefers its own library must be switched off for it by a
// variable of its environment, which CMakeLists.txt sets.
const std::vector<std::wstring> plantedNames = {
    L"cryptbase.dll", L"cryptsp.dll", L"bcrypt.dll",           L"bcryptprimitives.dll", L"uxtheme.dll",
    L"dwmapi.dll",    L"ole32.dll",   L"comctl32.dll",         L"textshaping.dll",      L"textinputframework.dll",
    L"version.dll",   L"winmm.dll",   L"coreuicomponents.dll",
};

std::wstring besideTheTests(const std::wstring& name) {
  const std::wstring runtime = sampleRuntime();
  return runtime.substr(0, runtime.find_last_of(L'\\') + 1) + name;
}

std::vector<std::string> loadedOf(const std::wstring& directory) {
  std::vector<std::string> loaded;
  for (const std::wstring& name : plantedNames) {
    if (isPresent(directory + L"\\" + name + L".loaded")) loaded.push_back(toUtf8(name));
  }
  return loaded;
}

// What was loaded from beside a launcher that has started a runtime and shown its box.
std::vector<std::string> loadedInALaunch(const std::wstring& program) {
  Installation installation;
  copyFile(program, installation.directory() + L"\\launcher.exe");
  installation.installSlot("aaaa", fails);
  installation.writeState(StateText{.generation = 5, .active = "aaaa"}.json());  // one start, one nonce, then the box
  for (const std::wstring& name : plantedNames)
    copyFile(besideTheTests(L"planted_library.dll"), installation.directory() + L"\\" + name);

  Launcher launcher = installation.start();
  const ErrorWindow box = waitForWindow(launcher.process());
  EXPECT_EQ(toUtf8(box.text), "No runnable runtime");
  pressButton(box);
  EXPECT_EQ(launcher.exitCode(), 1U);

  EXPECT_EQ(installation.startedSlots(), std::vector<std::string>{"aaaa"});
  return loadedOf(installation.directory());
}

TEST(plantedLibrary, besideTheLauncherIsNotLoaded) {
  requireDesktop();
  EXPECT_EQ(loadedInALaunch(launcherUnderTest()), std::vector<std::string>{});
}

// Otherwise nobody would know that there is something to be kept out: the same launcher, but for that one call.
TEST(plantedLibrary, isLoadedByALauncherThatDoesNotKeepToTheSystemsFolder) {
  requireDesktop();
  const std::vector<std::string> loaded = loadedInALaunch(besideTheTests(L"unguarded_launcher.exe"));
  EXPECT_EQ(std::count(loaded.begin(), loaded.end(), "uxtheme.dll"), 1);
}

// Otherwise the test above would pass with a library that never leaves a trace.
TEST(plantedLibrary, leavesATraceWhereItIsLoaded) {
  Installation installation;
  const std::wstring copy = installation.scratch() + L"\\planted.dll";
  copyFile(besideTheTests(L"planted_library.dll"), copy);

  const HMODULE library = LoadLibraryExW(copy.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);

  EXPECT_NE(library, nullptr);
  EXPECT_TRUE(isPresent(copy + L".loaded"));
  if (library != nullptr) FreeLibrary(library);
}

}  // namespace
}  // namespace end_to_end
