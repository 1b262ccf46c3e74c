#include "launcher/markers.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

const std::string runningNonce = "0123456789abcdef0123456789abcdef";

LaunchContext contextOf(const std::string& slot) {
  LaunchContext context;
  context.attemptDirectory = L"C:\\state\\attempts\\" + std::wstring(runningNonce.begin(), runningNonce.end());
  context.model.selected = slot;
  context.model.nextNonce = runningNonce;
  return context;
}

bool seen(const std::string& slot, const std::string& document) {
  SimOs sim;
  const LaunchContext context = contextOf(slot);
  sim.writeFile(context.attemptDirectory + L"\\ready-v1", document);
  return markerSeen(context, L"ready-v1");
}

TEST(markerSeen, wantsTheSlotAndTheNonceOfTheRunningAttempt) {
  struct Case {
    const char* why;
    Form form;
    bool counts;
  };
  const Case cases[] = {
      {"of this attempt", Form::right, true},          {"of an older attempt of the slot", Form::otherNonce, false},
      {"of another slot", Form::otherSlot, false},     {"cut while it is written", Form::half, false},
      {"no version", Form::noSchemaVersion, false},    {"a version to come", Form::newerMajor, false},
      {"created, not yet written", Form::empty, false}};

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(seen("aaaa", sim::slotReference(c.form, "aaaa", runningNonce)), c.counts);
    EXPECT_EQ(seen("seed", sim::slotReference(c.form, "seed", runningNonce)), c.counts);
  }
}

TEST(markerSeen, comparesByteForByte) {
  struct Case {
    const char* why;
    std::string slot;
    std::string nonce;
  };
  const Case cases[] = {
      {"another case", "aaaa", "0123456789ABCDEF0123456789ABCDEF"},
      {"a nonce that only begins alike", "aaaa", runningNonce + "0"},
      {"a slot that only begins alike", "aaaa0", runningNonce},
      {"no slot name", "AAAA", runningNonce},
      {"no token", "aaaa", "short"},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_FALSE(seen("aaaa", sim::slotReference(Form::right, c.slot, c.nonce)));
  }
}

TEST(markerSeen, ignoresFurtherMembers) {
  EXPECT_TRUE(seen("aaaa", "{\"schemaVersion\":1,\"pid\":7,\"nonce\":\"" + runningNonce + "\",\"slot\":\"aaaa\"}"));
}

TEST(markerSeen, isFalseForAMissingOrUnreadableFileWithoutAWord) {
  SimOs sim;
  const LaunchContext context = contextOf("aaaa");
  EXPECT_FALSE(markerSeen(context, L"healthy-v1")) << "missing";

  const std::wstring path = context.attemptDirectory + L"\\healthy-v1";
  const std::string document = sim::slotReference(Form::right, "aaaa", runningNonce);
  sim.writeFile(path, document + std::string(65537 - document.size(), ' '));
  EXPECT_FALSE(markerSeen(context, L"healthy-v1")) << "larger than any document";

  sim.writeFile(path, document);
  sim.fail(Call::readFile, path).times(1);
  EXPECT_FALSE(markerSeen(context, L"healthy-v1")) << "not readable";

  EXPECT_TRUE(markerSeen(context, L"healthy-v1")) << "readable again";
  EXPECT_EQ(sim.lines(), Lines{});
}

TEST(readRestartFile, tellsAbsentFromPresentFromUnderstood) {
  struct Case {
    const char* why;
    Form form;
    bool understood;
  };
  const Case cases[] = {{"right", Form::right, true},
                        {"of another attempt: for the decision to judge", Form::otherNonce, true},
                        {"cut", Form::half, false},
                        {"empty", Form::empty, false},
                        {"a version to come", Form::newerMajor, false}};

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    const LaunchContext context = contextOf("aaaa");
    sim.writeFile(context.attemptDirectory + L"\\restart-v1.json", sim::slotReference(c.form, "aaaa", runningNonce));

    const FoundRestart found = readRestartFile(context);

    EXPECT_TRUE(found.present);
    EXPECT_EQ(found.request.has_value(), c.understood);
  }
}

TEST(readRestartFile, findsNothingWhereThereIsNoFile) {
  SimOs sim;

  const FoundRestart found = readRestartFile(contextOf("aaaa"));

  EXPECT_FALSE(found.present);
  EXPECT_FALSE(found.request.has_value());
}

TEST(readRestartFile, handsOnTheWholeRequest) {
  SimOs sim;
  const LaunchContext context = contextOf("aaaa");
  sim.writeFile(context.attemptDirectory + L"\\restart-v1.json",
                sim::slotReference(Form::right, "aaaa", runningNonce, "request-0001"));

  const FoundRestart found = readRestartFile(context);

  ASSERT_TRUE(found.request.has_value());
  EXPECT_EQ(found.request->slot, "aaaa");
  EXPECT_EQ(found.request->nonce, runningNonce);
  EXPECT_EQ(found.request->requestId, "request-0001");
}

TEST(readRestartFile, countsAFileThatCannotBeReadOrLookedAtAsPresent) {
  SimOs sim;
  const LaunchContext context = contextOf("aaaa");
  const std::wstring path = context.attemptDirectory + L"\\restart-v1.json";
  sim.fail(Call::status, path).times(1);
  EXPECT_TRUE(readRestartFile(context).present) << "status unknown";

  sim.writeFile(path, sim::slotReference(Form::right, "aaaa", runningNonce));
  sim.fail(Call::readFile, path);
  const FoundRestart found = readRestartFile(context);

  EXPECT_TRUE(found.present) << "not readable";
  EXPECT_FALSE(found.request.has_value());
}

}  // namespace
}  // namespace launcher_stub
