#include "state/restart_request.h"

#include <gtest/gtest.h>

#include "tests/state/record_cases.h"

namespace launcher_stub {
namespace {

const std::string complete = R"("slot":"abcd","nonce":"nonce-01","requestId":"request-1")";

TEST(readRestartRequest, givesAllFields) {
  RestartRequest request;
  std::string error;

  ASSERT_TRUE(readRestartRequest(documentWith(complete), request, error)) << error;
  EXPECT_EQ(request.slot, "abcd");
  EXPECT_EQ(request.nonce, "nonce-01");
  EXPECT_EQ(request.requestId, "request-1");
}

TEST(readRestartRequest, needsNoRequestId) {
  RestartRequest request;
  request.requestId = "old-request";
  std::string error;

  ASSERT_TRUE(readRestartRequest(documentWith(R"("slot":"seed","nonce":"nonce-01")"), request, error)) << error;
  EXPECT_EQ(request.slot, "seed");
  EXPECT_EQ(request.requestId, std::nullopt);
}

TEST(readRestartRequest, checksTheHeader) { checkHeaderRules(readRestartRequest, complete); }

TEST(readRestartRequest, refusesWrongMembers) {
  const RecordCase cases[] = {
      {"no slot", documentWith(R"("nonce":"nonce-01")"), "invalid slot"},
      {"slot is too short", documentWith(R"("slot":"abc","nonce":"nonce-01")"), "invalid slot"},
      {"no nonce", documentWith(R"("slot":"abcd")"), "invalid nonce"},
      {"nonce is too short", documentWith(R"("slot":"abcd","nonce":"nonce-1")"), "invalid token"},
      {"id is null", documentWith(R"("slot":"abcd","nonce":"nonce-01","requestId":null)"), "invalid requestId"},
      {"id is a number", documentWith(R"("slot":"abcd","nonce":"nonce-01","requestId":12345678)"), "invalid requestId"},
      {"id is empty", documentWith(R"("slot":"abcd","nonce":"nonce-01","requestId":"")"), "invalid token"},
      {"id is too short", documentWith(R"("slot":"abcd","nonce":"nonce-01","requestId":"request")"), "invalid token"},
      {"slot before id", documentWith(R"("slot":"x","nonce":"nonce-01","requestId":1)"), "invalid slot"},
      {"nonce before id", documentWith(R"("slot":"abcd","nonce":"x","requestId":1)"), "invalid token"},
  };
  checkRecords(readRestartRequest, cases);
}

TEST(readRestartRequest, refusesADocumentCutAtAnyLength) { checkCuts(readRestartRequest, documentWith(complete)); }

TEST(readRestartRequest, acceptsAtMost65536Bytes) { checkSizeLimit(readRestartRequest, documentWith(complete)); }

}  // namespace
}  // namespace launcher_stub
