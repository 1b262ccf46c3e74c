// Which slot is started.

#include <gtest/gtest.h>

#include "tests/end_to_end/harness.h"
#include "tests/end_to_end/scripts.h"

namespace end_to_end {
namespace {

using Slots = std::vector<std::string>;
using Lines = std::vector<std::string>;

TEST(firstRun, startsTheSeedAndWritesTheFirstState) {
  Installation installation;
  installation.installSeed(startsUpAndEnds("exit 0"));

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(installation.startedSlots(), Slots{"seed"});
  EXPECT_EQ(installation.state(), StateText{.generation = 1}.json());
  EXPECT_EQ(installation.previousState(), "");
  EXPECT_EQ(installation.attempts().size(), 1U);
  EXPECT_EQ(installation.temporaryFiles(), std::vector<std::wstring>{});
  EXPECT_EQ(launcher.rawErrors(), "");
}

TEST(firstRun, leavesTheAttemptsRecordInADirectoryNamedByItsNonce) {
  Installation installation;
  installation.installSeed(endsTheRun(0));

  EXPECT_EQ(installation.start().exitCode(), 0U);

  ASSERT_EQ(installation.starts().size(), 1U);
  const std::string nonce = installation.starts().front().nonce;
  EXPECT_EQ(nonce.size(), 32U);
  EXPECT_EQ(nonce.find_first_not_of("0123456789abcdef"), std::string::npos) << nonce;
  ASSERT_EQ(installation.attempts(), std::vector<std::wstring>{toWide(nonce)});
  const std::string record = readFile(installation.inRoot(L"attempts\\" + toWide(nonce) + L"\\boot-v1.json"));
  EXPECT_TRUE(record.starts_with("{\"nonce\":\"" + nonce + "\",\"schemaVersion\":1,\"slot\":\"seed\",\"startedAt\":"))
      << record;
}

TEST(selection, prefersTheCandidateAndCountsItsStartBeforehand) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", fails);
  installation.installSlot("bbbb", staysForever);
  installation.writeState(StateText{.generation = 5, .active = "aaaa", .candidate = "bbbb"}.json());

  Launcher launcher = installation.start();

  ASSERT_TRUE(installation.startsWithin(1));
  EXPECT_EQ(installation.startedSlots(), Slots{"bbbb"});
  EXPECT_EQ(installation.state(),
            (StateText{.generation = 5, .active = "aaaa", .candidate = "bbbb", .attemptCount = 1}.json()));
  EXPECT_TRUE(launcher.isRunning());
}

TEST(selection, takesTheActiveSlotAndWritesNothing) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", endsTheRun(0));
  installation.installSlot("cccc", fails);
  const std::string state = StateText{.generation = 5, .active = "aaaa", .previous = "cccc"}.json();
  installation.writeState(state);

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(installation.startedSlots(), Slots{"aaaa"});
  EXPECT_EQ(installation.state(), state);
  EXPECT_EQ(installation.previousState(), "");
  EXPECT_EQ(launcher.lines(), Lines{});
}

TEST(selection, takesThePreviousSlotWhenTheActiveOneIsGone) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("cccc", endsTheRun(0));
  installation.writeState(StateText{.generation = 5, .active = "aaaa", .previous = "cccc"}.json());

  EXPECT_EQ(installation.start().exitCode(), 0U);

  EXPECT_EQ(installation.startedSlots(), Slots{"cccc"});
}

TEST(selection, fallsThroughFromActiveToPreviousToSeedInOneRun) {
  Installation installation;
  installation.installSeed(endsTheRun(7));
  installation.installSlot("aaaa", "crash\n");
  installation.installSlot("cccc", fails);
  const std::string state = StateText{.generation = 5, .active = "aaaa", .previous = "cccc"}.json();
  installation.writeState(state);

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 7U);
  EXPECT_EQ(installation.startedSlots(), (Slots{"aaaa", "cccc", "seed"}));
  EXPECT_EQ(installation.attempts().size(), 3U);
  EXPECT_EQ(installation.state(), state);
  EXPECT_EQ(launcher.lines(), Lines{});
}

TEST(selection, startsAFailingCandidateThreeTimesAndThenRejectsIt) {
  Installation installation;
  installation.installSeed(fails);
  installation.installSlot("aaaa", endsTheRun(0));
  installation.installSlot("bbbb", fails);
  installation.writeState(StateText{.generation = 5, .active = "aaaa", .candidate = "bbbb"}.json());

  EXPECT_EQ(installation.start().exitCode(), 0U);

  EXPECT_EQ(installation.startedSlots(), (Slots{"bbbb", "bbbb", "bbbb", "aaaa"}));
  EXPECT_EQ(installation.state(), (StateText{.generation = 6, .active = "aaaa", .rejected = {"bbbb"}}.json()));
}

TEST(selection, ignoresASlotWhoseDeliveryDiffersFromTheSeedsAndSaysSo) {
  Installation installation;
  installation.installSeed(endsTheRun(0), deliveryA);
  installation.installSlot("aaaa", fails, {.complete = true, .deliveryId = deliveryB});
  installation.installSlot("cccc", fails);  // none at all differs as well
  installation.writeState(StateText{.generation = 5, .active = "aaaa", .previous = "cccc"}.json());

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(installation.startedSlots(), Slots{"seed"});
  EXPECT_EQ(launcher.lines(), (Lines{"ignoring slot aaaa: delivery differs from seed",
                                     "ignoring slot cccc: delivery differs from seed"}));
}

TEST(selection, takesASlotWithTheSeedsDelivery) {
  Installation installation;
  installation.installSeed(fails, deliveryA);
  installation.installSlot("aaaa", endsTheRun(0), {.complete = true, .deliveryId = deliveryA});
  installation.writeState(StateText{.generation = 5, .active = "aaaa"}.json());

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(installation.startedSlots(), Slots{"aaaa"});
  EXPECT_EQ(launcher.lines(), Lines{});
}

TEST(selection, skipsAnIncompleteSlotSilently) {
  Installation installation;
  installation.installSeed(endsTheRun(0), deliveryA);
  installation.installSlot("aaaa", fails, {.complete = false, .deliveryId = deliveryB});
  installation.writeState(StateText{.generation = 5, .active = "aaaa"}.json());

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(installation.startedSlots(), Slots{"seed"});
  EXPECT_EQ(launcher.lines(), Lines{});
}

TEST(selection, fallsThroughFromAnExecutableThatCannotBeStarted) {
  Installation installation;
  installation.installSeed(endsTheRun(0));
  installation.installSlot("aaaa", fails);
  installation.writeBeside("aaaa", L"entry-v1.exe", "not a program");
  installation.writeState(StateText{.generation = 5, .active = "aaaa"}.json());
  const std::string path = toUtf8(installation.slotDirectory("aaaa")) + "\\entry-v1.exe";

  Launcher launcher = installation.start();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_EQ(installation.startedSlots(), Slots{"seed"});
  const Lines lines = launcher.lines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], "cannot start " + path + ": Win32 error 193");  // not a valid executable
  EXPECT_TRUE(lines[1].starts_with("cannot start ")) << lines[1];     // in the system's code page
  EXPECT_TRUE(lines[1].ends_with("\\slots\\aaaa\\entry-v1.exe")) << lines[1];
}

}  // namespace
}  // namespace end_to_end
