// Libraries that somebody has put beside launcher.exe, under names that the system loads while a program runs.

#include <gtest/gtest.h>
#include <windows.h>

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

std::wstring plantedLibrary() {
  wchar_t path[MAX_PATH] = L"";
  EXPECT_NE(GetModuleFileNameW(nullptr, path, MAX_PATH), 0U);
  const std::wstring program = path;
  return program.substr(0, program.rfind(L'\\')) + L"\\planted_library.dll";
}

std::vector<std::string> loadedOf(const std::wstring& directory) {
  std::vector<std::string> loaded;
  for (const std::wstring& name : plantedNames) {
    if (isPresent(directory + L"\\" + name + L".loaded")) loaded.push_back(toUtf8(name));
  }
  return loaded;
}

TEST(plantedLibrary, besideTheLauncherIsNotLoaded) {
  requireDesktop();
  Installation installation;
  installation.installSlot("aaaa", fails);
  installation.writeState(StateText{.generation = 5, .active = "aaaa"}.json());  // one start, one nonce, then the box
  for (const std::wstring& name : plantedNames) copyFile(plantedLibrary(), installation.directory() + L"\\" + name);

  Launcher launcher = installation.start();
  const ErrorWindow box = waitForWindow(launcher.process());
  EXPECT_EQ(toUtf8(box.text), "No runnable runtime");
  pressButton(box);
  EXPECT_EQ(launcher.exitCode(), 1U);

  EXPECT_EQ(installation.startedSlots(), std::vector<std::string>{"aaaa"});
  EXPECT_EQ(loadedOf(installation.directory()), std::vector<std::string>{});
}

// Otherwise the test above would pass with a library that never leaves a trace.
TEST(plantedLibrary, leavesATraceWhereItIsLoaded) {
  Installation installation;
  const std::wstring copy = installation.scratch() + L"\\planted.dll";
  copyFile(plantedLibrary(), copy);

  const HMODULE library = LoadLibraryExW(copy.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);

  EXPECT_NE(library, nullptr);
  EXPECT_TRUE(isPresent(copy + L".loaded"));
  if (library != nullptr) FreeLibrary(library);
}

}  // namespace
}  // namespace end_to_end
