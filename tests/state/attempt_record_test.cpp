#include "state/attempt_record.h"

#include <gtest/gtest.h>

#include "tests/state/record_cases.h"

namespace launcher_stub {
namespace {

const std::string complete = R"("slot":"abcd","nonce":"nonce-01")";

TEST(readAttemptRecord, givesSlotAndNonce) {
  AttemptRecord record;
  std::string error;

  ASSERT_TRUE(readAttemptRecord(documentWith(complete), record, error)) << error;
  EXPECT_EQ(record, (AttemptRecord{.slot = "abcd", .nonce = "nonce-01", .startedAt = 0}));
}

TEST(readAttemptRecord, checksTheHeader) { checkHeaderRules(readAttemptRecord, complete); }

TEST(readAttemptRecord, refusesWrongMembers) {
  const RecordCase cases[] = {
      {"the seed runs too", documentWith(R"("slot":"seed","nonce":"nonce-01")"), accepted},
      {"no slot", documentWith(R"("nonce":"nonce-01")"), "invalid slot"},
      {"slot is a number", documentWith(R"("slot":1234,"nonce":"nonce-01")"), "invalid slot"},
      {"slot is too short", documentWith(R"("slot":"abc","nonce":"nonce-01")"), "invalid slot"},
      {"seed in another case", documentWith(R"("slot":"Seed","nonce":"nonce-01")"), "invalid slot"},
      {"slot with a zero byte", documentWith(R"("slot":"seed\u0000","nonce":"nonce-01")"), "invalid slot"},
      {"no nonce", documentWith(R"("slot":"abcd")"), "invalid nonce"},
      {"nonce is a number", documentWith(R"("slot":"abcd","nonce":12345678)"), "invalid nonce"},
      {"nonce of 7 bytes", documentWith(R"("slot":"abcd","nonce":"aB3-_xy")"), "invalid token"},
      {"nonce of 8 bytes", documentWith(R"("slot":"abcd","nonce":"aB3-_xyz")"), accepted},
      {"nonce with a dot", documentWith(R"("slot":"abcd","nonce":"nonce.01")"), "invalid token"},
      {"nonce with an equals sign", documentWith(R"("slot":"abcd","nonce":"nonce=01")"), "invalid token"},
      {"the time is not read", documentWith(complete + R"(,"startedAt":"noon")"), accepted},
      {"slot before nonce", documentWith(R"("slot":"x","nonce":1)"), "invalid slot"},
      {"slot's type before nonce", documentWith(R"("slot":null)"), "invalid slot"},
  };
  checkRecords(readAttemptRecord, cases);
}

TEST(writeAttemptRecord, writesAllFieldsByKey) {
  EXPECT_EQ(writeAttemptRecord({.slot = "seed", .nonce = "nonce-01", .startedAt = 1234}),
            R"({"nonce":"nonce-01","schemaVersion":1,"slot":"seed","startedAt":1234})");
}

TEST(writeAttemptRecord, isReadBackSaveForTheTime) {
  AttemptRecord record;
  std::string error;

  ASSERT_TRUE(readAttemptRecord(
      writeAttemptRecord({.slot = "abcd", .nonce = std::string(64, 'f'), .startedAt = ~std::uint64_t{0}}), record,
      error))
      << error;
  EXPECT_EQ(record, (AttemptRecord{.slot = "abcd", .nonce = std::string(64, 'f'), .startedAt = 0}));
}

TEST(readAttemptRecord, refusesADocumentCutAtAnyLength) {
  checkCuts(readAttemptRecord, writeAttemptRecord({.slot = "abcd", .nonce = "nonce-01", .startedAt = 1234}));
}

TEST(readAttemptRecord, acceptsAtMost65536Bytes) { checkSizeLimit(readAttemptRecord, documentWith(complete)); }

}  // namespace
}  // namespace launcher_stub
