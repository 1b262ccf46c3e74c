#include "state/delivery_record.h"

#include <gtest/gtest.h>

#include "tests/state/record_cases.h"

namespace launcher_stub {
namespace {

const std::string someId = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

std::string documentWithId(const std::string& id) { return documentWith("\"deliveryId\":\"" + id + "\""); }

TEST(readDelivery, givesTheDeliveryId) {
  DeliveryRecord record;
  std::string error;

  ASSERT_TRUE(readDelivery(documentWithId(someId), record, error)) << error;
  EXPECT_EQ(record.deliveryId, someId);
}

TEST(readDelivery, checksTheHeader) { checkHeaderRules(readDelivery, "\"deliveryId\":\"" + someId + "\""); }

TEST(readDelivery, takesExactly64LowerCaseHexDigits) {
  const RecordCase cases[] = {
      {"64 digits", documentWithId(someId), accepted},
      {"63 digits", documentWithId(someId.substr(1)), "invalid deliveryId"},
      {"65 digits", documentWithId(someId + "0"), "invalid deliveryId"},
      {"one upper case digit", documentWithId(someId.substr(1) + "F"), "invalid deliveryId"},
      {"one other letter", documentWithId(someId.substr(1) + "g"), "invalid deliveryId"},
      {"a valid slot name is too short", documentWithId("abcd"), "invalid deliveryId"},
      {"empty", documentWithId(""), "invalid deliveryId"},
      {"absent", documentWith(""), "invalid deliveryId"},
      {"a number", documentWith("\"deliveryId\":" + std::string(64, '1')), "invalid deliveryId"},
      {"null", documentWith("\"deliveryId\":null"), "invalid deliveryId"},
  };
  checkRecords(readDelivery, cases);
}

TEST(readDelivery, acceptsAtMost65536Bytes) { checkSizeLimit(readDelivery, documentWithId(someId)); }

TEST(readDelivery, refusesADocumentThatIsTooLargeWhateverItHolds) {
  EXPECT_EQ(outcomeOf(readDelivery, std::string(65537, 'x')), "record too large");
}

TEST(readDelivery, refusesADocumentCutAtAnyLength) { checkCuts(readDelivery, documentWithId(someId)); }

}  // namespace
}  // namespace launcher_stub
