// What the launcher says about the access lists of its directories: each notice at most once in a launch, whichever and
// however many directories give cause for it, and also where the runtime has itself restarted within the launch.

#include <gtest/gtest.h>

#include "tests/end_to_end/harness.h"
#include "tests/end_to_end/scripts.h"
#include "tests/support/windows_temp_directory.h"

namespace end_to_end {
namespace {

using Slots = std::vector<std::string>;

const std::string reset = "reset state root DACL to current user and system principals\n";
const std::string notKept = "filesystem did not persist the private directory ACL\n";
const std::string noLists = "filesystem does not provide persistent state root ACLs\n";

// The same launcher, on a volume that is played to it.
std::wstring launcherOnPlayedVolume() {
  const std::wstring runtime = sampleRuntime();
  return runtime.substr(0, runtime.find_last_of(L'\\') + 1) + L"launcher_on_played_volume.exe";
}

// Two iterations in one run, each with an attempt's directory of its own.
const std::string restartsOnce = "[start 1]\nrestart -\nexit 0\n[otherwise]\n" + endsTheRun(0);

void expectErrors(Installation& installation, const LauncherStart& start, const std::string& errors) {
  const std::size_t before = installation.starts().size();
  Launcher launcher = installation.start(start);
  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(launcher.rawErrors(), errors);
  EXPECT_GT(installation.starts().size(), before);
}

// Wine keeps no list: what it tells of a directory is never the private one. On Windows this root is reset once for
// all, here at each launch.
TEST(notices, tellOfAResetOnceInEachLaunch) {
  Installation installation;
  installation.installSeed(restartsOnce);
  for (const wchar_t* name : {L"attempts", L"slots"}) createDirectories(installation.inRoot(name));

  expectErrors(installation, {}, reset);
  EXPECT_EQ(installation.startedSlots(), (Slots{"seed", "seed"}));

  expectErrors(installation, {}, launcher_stub::tests::runsUnderWine() ? reset : "");
}

TEST(notices, comeOnceHoweverManyDirectoriesGiveCause) {
  struct Case {
    const char* why;
    std::wstring volume;                   // as played to the launcher
    std::vector<const wchar_t*> existing;  // behind the state root's path
    std::string errors;
  };
  const std::vector<const wchar_t*> none = {};
  const std::vector<const wchar_t*> all = {L"\\attempts", L"\\slots"};
  const Case cases[] = {
      {"all new, and kept", L"keeps lists", none, ""},
      {"all there, and right", L"keeps lists", all, ""},
      {"all new: no existing root is looked at", L"keeps no lists", none, ""},
      {"all there", L"keeps no lists", all, noLists},
      {"only the root itself", L"keeps no lists", {L""}, noLists},
      {"five new ones", L"forgets lists", none, notKept},
      {"three to reset, and two attempts that are new", L"forgets lists", all, reset + notKept},
      {"the root to reset, the others new", L"forgets lists", {L""}, reset + notKept},
      {"the root to reset, the others new and kept", L"as it is", {L""}, reset},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Installation installation;
    installation.installSeed(restartsOnce);
    copyFile(launcherOnPlayedVolume(), installation.directory() + L"\\launcher.exe");
    for (const wchar_t* name : c.existing) createDirectories(installation.stateRoot() + name);

    expectErrors(installation, {.variables = {{L"PLAYED_VOLUME", c.volume}}}, c.errors);

    EXPECT_EQ(installation.startedSlots(), (Slots{"seed", "seed"}));
    EXPECT_EQ(installation.attempts().size(), 2U);
  }
}

}  // namespace
}  // namespace end_to_end
