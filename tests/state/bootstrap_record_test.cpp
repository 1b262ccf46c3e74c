#include "state/bootstrap_record.h"

#include <gtest/gtest.h>

#include "tests/state/record_cases.h"

namespace launcher_stub {
namespace {

const std::string complete = R"("installId":"i","seedSlot":"seed","stateRoot":"C:\\state")";

TEST(readBootstrap, startsWithTheSeedAsTheSeedSlot) { EXPECT_EQ(BootstrapRecord{}.seedSlot, "seed"); }

TEST(readBootstrap, givesAllFields) {
  BootstrapRecord record;
  std::string error;

  ASSERT_TRUE(readBootstrap(documentWith(complete), record, error)) << error;
  EXPECT_EQ(record.installId, "i");
  EXPECT_EQ(record.seedSlot, "seed");
  EXPECT_EQ(record.stateRoot, "C:\\state");
}

TEST(readBootstrap, clearsTheStateRootThatIsAbsent) {
  BootstrapRecord record;
  record.stateRoot = "old";
  std::string error;

  ASSERT_TRUE(readBootstrap(documentWith(R"("installId":"i","seedSlot":"seed")"), record, error)) << error;
  EXPECT_EQ(record.stateRoot, std::nullopt);
}

TEST(readBootstrap, checksTheHeader) { checkHeaderRules(readBootstrap, complete); }

TEST(readBootstrap, refusesWrongMembers) {
  const RecordCase cases[] = {
      {"no id", documentWith(R"("seedSlot":"seed")"), "invalid installId"},
      {"id is a number", documentWith(R"("installId":1,"seedSlot":"seed")"), "invalid installId"},
      {"id is empty", documentWith(R"("installId":"","seedSlot":"seed")"), "invalid bootstrap"},
      {"no seed slot", documentWith(R"("installId":"i")"), "invalid seedSlot"},
      {"seed slot is null", documentWith(R"("installId":"i","seedSlot":null)"), "invalid seedSlot"},
      {"seed slot in another case", documentWith(R"("installId":"i","seedSlot":"Seed")"), "invalid bootstrap"},
      {"seed slot of five bytes", documentWith(R"("installId":"i","seedSlot":"seeds")"), "invalid bootstrap"},
      {"seed slot with a zero byte", documentWith(R"("installId":"i","seedSlot":"seed\u0000")"), "invalid bootstrap"},
      {"seed slot is another slot", documentWith(R"("installId":"i","seedSlot":"abcd")"), "invalid bootstrap"},
      {"seed slot is empty", documentWith(R"("installId":"i","seedSlot":"")"), "invalid bootstrap"},
      {"root is null", documentWith(R"("installId":"i","seedSlot":"seed","stateRoot":null)"), "invalid stateRoot"},
      {"root is empty", documentWith(R"("installId":"i","seedSlot":"seed","stateRoot":"")"), accepted},
      {"keys in another case", documentWith(R"("installID":"i","seedSlot":"seed")"), "invalid installId"},
  };
  checkRecords(readBootstrap, cases);
}

TEST(readBootstrap, reportsTheFirstOfTwoFaults) {
  const RecordCase cases[] = {
      {"version before id", R"({"schemaVersion":2,"installId":1,"seedSlot":"seed"})", "unsupported major"},
      {"id before seed slot", documentWith(R"("installId":1,"seedSlot":1)"), "invalid installId"},
      {"seed slot before root", documentWith(R"("installId":"i","seedSlot":1,"stateRoot":1)"), "invalid seedSlot"},
      {"types before values", documentWith(R"("installId":"","seedSlot":"x","stateRoot":1)"), "invalid stateRoot"},
  };
  checkRecords(readBootstrap, cases);
}

TEST(readBootstrap, refusesADocumentCutAtAnyLength) { checkCuts(readBootstrap, documentWith(complete)); }

TEST(readBootstrap, acceptsAtMost65536Bytes) { checkSizeLimit(readBootstrap, documentWith(complete)); }

}  // namespace
}  // namespace launcher_stub
