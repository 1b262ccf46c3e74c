// The error box, in a real window.

#include <gtest/gtest.h>

#include "tests/end_to_end/error_window.h"
#include "tests/end_to_end/harness.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Lines = std::vector<std::string>;

// A launcher that shows `text` in its only box, prints it as its only line, lives while the box is open, and ends with
// exit code 1 when it is closed.
void expectBoxAndCodeOne(Launcher& launcher, const std::string& text) {
  const ErrorWindow box = waitForWindow(launcher.process());
  EXPECT_EQ(toUtf8(box.title), "Plinket launcher");
  EXPECT_EQ(toUtf8(box.text), text);
  EXPECT_EQ(box.buttons.size(), 1U);
  EXPECT_EQ(windowsOf(launcher.process().id()).size(), 1U);
  EXPECT_TRUE(launcher.isRunning());

  pressButton(box);

  EXPECT_EQ(launcher.exitCode(), 1U);
  EXPECT_EQ(launcher.lines(), Lines{text});
}

TEST(errorBox, saysThatTheBootstrapIsMissing) {
  requireDesktop();
  Installation installation;
  installation.installSeed(fails);
  installation.removeBootstrap();

  Launcher launcher = installation.start();

  expectBoxAndCodeOne(launcher, "missing bootstrap-v1.json");
  EXPECT_FALSE(isPresent(installation.stateRoot()));
}

TEST(errorBox, saysWhatIsWrongWithTheBootstrap) {
  requireDesktop();
  Installation installation;
  installation.installSeed(fails);
  installation.writeBootstrap(R"({"schemaVersion":1,"seedSlot":"seed"})");

  Launcher launcher = installation.start();

  expectBoxAndCodeOne(launcher, "invalid bootstrap-v1.json: invalid installId");
  EXPECT_FALSE(isPresent(installation.stateRoot()));
}

TEST(errorBox, saysThatTheStateRootCannotBeCreated) {
  requireDesktop();
  Installation installation;
  installation.installSeed(fails);
  writeFile(installation.stateRoot(), "a file where the directory should be");

  Launcher launcher = installation.start();

  expectBoxAndCodeOne(launcher, "cannot create private state root");
}

TEST(errorBox, saysThatThereIsNoPlaceForTheStateRoot) {
  requireDesktop();
  Installation installation(RootFrom::localAppData);
  installation.installSeed(fails);

  Launcher launcher = installation.start({.variables = {{L"LOCALAPPDATA", L""}}});

  expectBoxAndCodeOne(launcher, "cannot create private state root");
}

TEST(errorBox, saysThatTheLeaseCannotBeTaken) {
  requireDesktop();
  Installation installation;
  installation.installSeed(fails);
  createDirectories(installation.inRoot(L"launch.lock"));  // a directory where the lock file should be

  Launcher launcher = installation.start();

  expectBoxAndCodeOne(launcher, "cannot acquire launch lease");
}

TEST(errorBox, saysThatNoRuntimeCanBeStarted) {
  requireDesktop();
  Installation installation;

  Launcher launcher = installation.start();

  expectBoxAndCodeOne(launcher, "No runnable runtime");
  EXPECT_EQ(installation.state(), StateText{.generation = 1}.json());
}

TEST(errorBox, saysThatAllRuntimesHaveFailed) {
  requireDesktop();
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", fails);
  installation.writeState(StateText{.generation = 5, .active = "aaaa"}.json());

  Launcher launcher = installation.start();

  expectBoxAndCodeOne(launcher, "No runnable runtime");
  EXPECT_EQ(installation.startedSlots(), (Lines{"aaaa", "seed"}));
}

TEST(errorBox, saysThatTheGenerationIsUsedUp) {
  requireDesktop();
  Installation installation;
  installation.installSeed(fails);
  const std::string state = StateText{.generation = 18446744073709551615U}.json();
  installation.writeState(state);

  Launcher launcher = installation.start();

  expectBoxAndCodeOne(launcher, "generation overflow");
  EXPECT_EQ(installation.startedSlots(), Lines{});
  EXPECT_EQ(installation.state(), state);
}

// The launcher waits for a box for 30 s and then goes on to end; the open box still keeps the process.
TEST(slowErrorBox, keepsTheProcessForAsLongAsItIsOpen) {
  requireDesktop();
  Installation installation;
  installation.removeBootstrap();
  Launcher launcher = installation.start();
  const ErrorWindow box = waitForWindow(launcher.process());

  EXPECT_FALSE(launcher.process().endsWithin(33'000));
  EXPECT_EQ(windowsOf(launcher.process().id()).size(), 1U);
  closeWindow(box);

  EXPECT_EQ(launcher.exitCode(), 1U);
}

}  // namespace
}  // namespace end_to_end
