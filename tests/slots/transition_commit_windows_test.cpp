// The commit on real files and locks. No test here starts a process: the end-to-end tests do.

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "os/lock_file.h"
#include "slots/transition_commit.h"
#include "state/boot_state.h"
#include "tests/support/windows_temp_directory.h"

namespace launcher_stub {
namespace {

using tests::TempDirectory;

using Names = std::vector<std::wstring>;

constexpr const wchar_t* attemptName = L"0123456789abcdef0123456789abcdef";

BootState stateOf(std::uint64_t generation) { return {.generation = generation, .active = "aaaa"}; }

TransitionEffect savingWriteOf(const BootState& state) {
  TransitionEffect effect;
  effect.kind = EffectKind::WriteBootState;
  effect.record = state;
  effect.savePrevious = true;
  return effect;
}

TransitionEffect clearPending() {
  TransitionEffect effect;
  effect.kind = EffectKind::ClearPending;
  return effect;
}

TransitionEffect beginAttempt() {
  TransitionEffect effect;
  effect.kind = EffectKind::BeginAttempt;
  effect.attemptName = attemptName;
  effect.record = AttemptRecord{"aaaa", "0123456789abcdef0123456789abcdef", 4711};
  return effect;
}

// A state root with the state of generation 7 in force and a pending request.
class TransitionCommitTest : public testing::Test {
 protected:
  TransitionCommitTest() {
    context_.stateRoot = root_.path();
    context_.model.state = stateOf(7);
    context_.keepsPrevious = true;
    tests::makeDirectory(root_ / L"attempts");
    tests::writeFile(root_ / L"boot-v1.json", writeBootState(stateOf(7)));
    tests::writeFile(root_ / L"pending-v1.json", "{}");
  }

  bool apply(std::vector<TransitionEffect> effects, os::LockFile* held = nullptr) {
    LauncherModel model;
    model.state = stateOf(8);
    model.effects = std::move(effects);
    return applyTransition(context_, model, held, false);
  }
  std::string text(const wchar_t* name) { return tests::readFile(root_ / name).value_or("(no file)"); }

  TempDirectory root_;
  LaunchContext context_;
};

TEST_F(TransitionCommitTest, writesThePreviousStateAndTheNewOneAndClearsTheRequest) {
  EXPECT_TRUE(apply({savingWriteOf(stateOf(8)), clearPending()}));

  EXPECT_EQ(text(L"boot-v1.previous.json"), writeBootState(stateOf(7)));
  EXPECT_EQ(text(L"boot-v1.json"), writeBootState(stateOf(8)));
  EXPECT_EQ(tests::namesIn(root_.path()),
            (Names{L"attempts", L"boot-v1.json", L"boot-v1.previous.json", L"state.lock"}));
}

TEST_F(TransitionCommitTest, createsTheAttemptDirectoryWithItsRecord) {
  EXPECT_TRUE(apply({beginAttempt()}));

  EXPECT_EQ(context_.attemptDirectory, root_ / (L"attempts\\" + std::wstring(attemptName)));
  EXPECT_EQ(tests::namesIn(context_.attemptDirectory), Names{L"boot-v1.json"});
  EXPECT_EQ(tests::readFile(context_.attemptDirectory + L"\\boot-v1.json"),
            writeAttemptRecord({"aaaa", "0123456789abcdef0123456789abcdef", 4711}));
}

TEST_F(TransitionCommitTest, canBeRepeatedWhenItsStepsWereDoneAlready) {
  EXPECT_TRUE(apply({savingWriteOf(stateOf(8)), clearPending(), beginAttempt()}));
  context_.model.state = stateOf(7);  // as after a commit that failed behind its last file

  EXPECT_TRUE(apply({savingWriteOf(stateOf(8)), clearPending(), beginAttempt()}));

  EXPECT_EQ(text(L"boot-v1.previous.json"), writeBootState(stateOf(7)));
  EXPECT_EQ(text(L"boot-v1.json"), writeBootState(stateOf(8)));
}

TEST_F(TransitionCommitTest, usesAndReleasesTheLockThatItIsHanded) {
  os::LockFile held;
  ASSERT_TRUE(os::openLockFile(held, root_ / L"state.lock", os::LockWait::none));

  EXPECT_TRUE(apply({savingWriteOf(stateOf(8))}, &held));

  EXPECT_FALSE(held.handle);
  os::LockFile again;
  EXPECT_TRUE(os::openLockFile(again, root_ / L"state.lock", os::LockWait::none));
}

TEST_F(TransitionCommitTest, changesNothingWhileAnotherHoldsTheLock) {
  os::LockFile other;
  ASSERT_TRUE(os::openLockFile(other, root_ / L"state.lock", os::LockWait::none));

  EXPECT_FALSE(apply({savingWriteOf(stateOf(8)), clearPending()}));  // waits for the 5 s

  EXPECT_EQ(text(L"boot-v1.json"), writeBootState(stateOf(7)));
  EXPECT_EQ(text(L"pending-v1.json"), "{}");
  EXPECT_EQ(context_.model.state, stateOf(7));
}

TEST_F(TransitionCommitTest, takesNoLockWhereNoEffectNeedsOne) {
  os::LockFile other;
  ASSERT_TRUE(os::openLockFile(other, root_ / L"state.lock", os::LockWait::none));
  TransitionEffect exit;
  exit.kind = EffectKind::Exit;
  exit.number = 5;

  EXPECT_TRUE(apply({exit}));

  EXPECT_TRUE(context_.exitRequested);
  EXPECT_EQ(context_.exitCode, 5);
}

TEST_F(TransitionCommitTest, failsWhereARequestCannotBeRemoved) {
  tests::setAttributes(root_ / L"pending-v1.json", 1);  // read-only: the system refuses to delete it

  EXPECT_FALSE(apply({clearPending()}));

  EXPECT_EQ(text(L"pending-v1.json"), "{}");
  tests::setAttributes(root_ / L"pending-v1.json", 0x80);
  EXPECT_TRUE(apply({clearPending()}));
}

}  // namespace
}  // namespace launcher_stub
