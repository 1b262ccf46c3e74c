// The documents in the state root: recovery, and requests taken in.

#include <gtest/gtest.h>

#include "tests/end_to_end/harness.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Slots = std::vector<std::string>;
using Lines = std::vector<std::string>;

TEST(corruptState, isReplacedByThePreviousOneAboveItsOwnGeneration) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", endsTheRun(0));
  const std::string previous = StateText{.generation = 7, .active = "aaaa"}.json();
  installation.writeState(R"({"generation":"41"})");  // no boot state, but it tells how far the counting had come
  installation.writePreviousState(previous);

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(installation.startedSlots(), Slots{"aaaa"});
  EXPECT_EQ(installation.state(), (StateText{.generation = 42, .active = "aaaa", .recovered = true}.json()));
  EXPECT_EQ(installation.previousState(), previous);
  EXPECT_EQ(launcher.lines(), Lines{});
}

TEST(corruptState, cutInTheMiddleIsReplacedByThePreviousOne) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", endsTheRun(0));
  const std::string whole = StateText{.generation = 8, .active = "bbbb"}.json();
  installation.writeState(whole.substr(0, whole.size() / 2));
  installation.writePreviousState(StateText{.generation = 7, .active = "aaaa"}.json());

  EXPECT_EQ(installation.start().exitCode(), 0U);

  EXPECT_EQ(installation.startedSlots(), Slots{"aaaa"});
  EXPECT_EQ(installation.state(), (StateText{.generation = 8, .active = "aaaa", .recovered = true}.json()));
}

TEST(corruptState, onceRecoveredNeedsNoRecoveryAtTheNextStart) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", endsTheRun(0));
  installation.writePreviousState(StateText{.generation = 7, .active = "aaaa"}.json());
  EXPECT_EQ(installation.start().exitCode(), 0U);
  const std::string recovered = installation.state();

  EXPECT_EQ(installation.start().exitCode(), 0U);

  EXPECT_EQ(recovered, (StateText{.generation = 8, .active = "aaaa", .recovered = true}.json()));
  EXPECT_EQ(installation.state(), recovered);
}

TEST(corruptState, withoutAPreviousOneStartsTheSeedAndIsLeftAsItIs) {
  Installation installation;
  installation.installSeed(endsTheRun(0));
  installation.installSlot("aaaa", fails);
  const std::string corrupt = R"({"active":"aaaa","generation":)";
  installation.writeState(corrupt);

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(installation.startedSlots(), Slots{"seed"});
  EXPECT_EQ(installation.state(), corrupt);
  EXPECT_EQ(installation.previousState(), "");
  EXPECT_EQ(launcher.lines(), Lines{});
}

TEST(pendingRequest, isTakenInAndItsCandidateStarted) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", fails);
  installation.installSlot("bbbb", staysForever);
  const std::string before = StateText{.generation = 5, .active = "aaaa"}.json();
  installation.writeState(before);
  installation.writePending(pendingText("bbbb", "request-1", 5));

  Launcher launcher = installation.start();

  ASSERT_TRUE(installation.startsWithin(1));
  EXPECT_EQ(installation.startedSlots(), Slots{"bbbb"});
  EXPECT_EQ(installation.state(),
            (StateText{
                .generation = 6, .active = "aaaa", .candidate = "bbbb", .lastRequestId = "request-1", .attemptCount = 1}
                 .json()));
  EXPECT_EQ(installation.previousState(), before);
  EXPECT_FALSE(installation.hasPending());
  EXPECT_EQ(launcher.lines(), Lines{});
}

// A request that is read but not taken in is disposed of, and nothing else changes.
TEST(pendingRequest, isDisposedOfWhenItDoesNotFit) {
  struct Case {
    const char* why;
    std::string pending;
  };
  const Case cases[] = {
      {"made for an older generation", pendingText("bbbb", "request-2", 4)},
      {"made for a later generation", pendingText("bbbb", "request-2", 6)},
      {"taken in before", pendingText("bbbb", "request-1", 5)},
      {"for a rejected slot", pendingText("dddd", "request-2", 5)},
      {"for a slot that is not there", pendingText("eeee", "request-2", 5)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Installation installation;
    installation.installSeed(fails);
    installation.installSlot("aaaa", endsTheRun(0));
    installation.installSlot("bbbb", fails);
    installation.installSlot("dddd", fails);
    const std::string state =
        StateText{.generation = 5, .active = "aaaa", .lastRequestId = "request-1", .rejected = {"dddd"}}.json();
    installation.writeState(state);
    installation.writePending(c.pending);

    Launcher launcher = installation.start();

    EXPECT_EQ(launcher.exitCode(), 0U);
    EXPECT_EQ(installation.startedSlots(), Slots{"aaaa"});
    EXPECT_EQ(installation.state(), state);
    EXPECT_FALSE(installation.hasPending());
    EXPECT_EQ(launcher.lines(), Lines{});
  }
}

TEST(pendingRequest, thatCannotBeReadIsLeftWhereItIs) {
  const std::string right = pendingText("bbbb", "request-2", 5);
  const std::string unreadable[] = {right.substr(0, right.size() / 2),
                                    R"({"candidate":"bbbb","expectedGeneration":5,"requestId":"request-2"})",
                                    R"({"schemaVersion":2})"};
  for (const std::string& pending : unreadable) {
    SCOPED_TRACE(pending);
    Installation installation;
    installation.installSeed(fails);
    installation.installSlot("aaaa", endsTheRun(0));
    installation.installSlot("bbbb", fails);
    installation.writeState(StateText{.generation = 5, .active = "aaaa"}.json());
    installation.writePending(pending);

    EXPECT_EQ(installation.start().exitCode(), 0U);

    EXPECT_EQ(installation.startedSlots(), Slots{"aaaa"});
    EXPECT_TRUE(installation.hasPending());
  }
}

TEST(pendingRequest, leftByTheRuntimeIsTakenInByTheRestartThatItAsksFor) {
  Installation installation;
  installation.installSeed(fails, deliveryA);
  installation.installSlot("aaaa", "stage bbbb next.txt\npending bbbb request-1\nrestart request-1\nexit 0\n",
                           {.complete = true, .deliveryId = deliveryA});
  installation.writeBeside("aaaa", L"next.txt", "log runtime.log\nreport\n" + endsTheRun(9));
  installation.writeState(StateText{.generation = 5, .active = "aaaa"}.json());

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 9U);
  EXPECT_EQ(installation.startedSlots(), (Slots{"aaaa", "bbbb"}));
  EXPECT_EQ(installation.log("aaaa").all("failed"), Lines{});
  EXPECT_FALSE(installation.hasPending());
  // The candidate's own restart request took its start off the count again.
  EXPECT_EQ(installation.state(),
            (StateText{
                .generation = 6, .active = "aaaa", .candidate = "bbbb", .lastRequestId = "request-1", .attemptCount = 0}
                 .json()));
  EXPECT_EQ(launcher.lines(), Lines{});
}

}  // namespace
}  // namespace end_to_end
