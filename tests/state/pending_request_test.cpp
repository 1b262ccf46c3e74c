#include "state/pending_request.h"

#include <gtest/gtest.h>

#include "tests/state/record_cases.h"

namespace launcher_stub {
namespace {

const std::string complete = R"("requestId":"request-1","expectedGeneration":7,"candidate":"abcd")";

// The complete members with one text in them replaced.
std::string changed(const std::string& from, const std::string& to) {
  std::string members = complete;
  return documentWith(members.replace(members.find(from), from.size(), to));
}

TEST(readPendingRequest, givesAllFields) {
  PendingRequest request;
  std::string error;

  ASSERT_TRUE(readPendingRequest(documentWith(complete), request, error)) << error;
  EXPECT_EQ(request.requestId, "request-1");
  EXPECT_EQ(request.expectedGeneration, 7u);
  EXPECT_EQ(request.candidate, "abcd");
}

TEST(readPendingRequest, checksTheHeader) { checkHeaderRules(readPendingRequest, complete); }

TEST(readPendingRequest, refusesWrongMembers) {
  const RecordCase cases[] = {
      {"no id", changed("requestId", "other"), "invalid requestId"},
      {"id is a number", changed(R"("request-1")", "12345678"), "invalid requestId"},
      {"id is too short", changed("request-1", "request"), "invalid token"},
      {"shortest id", changed("request-1", "request1"), accepted},
      {"longest id", changed("request-1", std::string(64, 'r')), accepted},
      {"id is too long", changed("request-1", std::string(65, 'r')), "invalid token"},
      {"id with a dot", changed("request-1", "request.1"), "invalid token"},
      {"no generation", changed("expectedGeneration", "other"), "invalid expectedGeneration"},
      {"generation is a string", changed("7", R"("7")"), "invalid expectedGeneration"},
      {"generation with a sign", changed("7", "-7"), "invalid expectedGeneration"},
      {"generation with a fraction", changed("7", "7.0"), "invalid expectedGeneration"},
      {"greatest generation", changed("7", "18446744073709551615"), accepted},
      {"generation beyond 64 bits", changed("7", "18446744073709551616"), "invalid expectedGeneration"},
      {"no candidate", changed("candidate", "other"), "invalid candidate"},
      {"candidate is null", changed(R"("abcd")", "null"), "invalid candidate"},
      {"the seed is no candidate", changed("abcd", "seed"), "invalid slot"},
      {"candidate in upper case", changed("abcd", "ABCD"), "invalid slot"},
      {"candidate is too short", changed("abcd", "abc"), "invalid slot"},
      {"longest candidate", changed("abcd", std::string(64, 'a')), accepted},
      {"candidate is too long", changed("abcd", std::string(65, 'a')), "invalid slot"},
  };
  checkRecords(readPendingRequest, cases);
}

TEST(readPendingRequest, reportsTheFirstOfTwoFaults) {
  const RecordCase cases[] = {
      {"version before id", R"({"schemaVersion":2,"requestId":1})", "unsupported major"},
      {"token before generation", documentWith(R"("requestId":"short","expectedGeneration":"7","candidate":1)"),
       "invalid token"},
      {"generation before candidate", documentWith(R"("requestId":"request-1","expectedGeneration":1.5,"candidate":1)"),
       "invalid expectedGeneration"},
  };
  checkRecords(readPendingRequest, cases);
}

TEST(readPendingRequest, refusesADocumentCutAtAnyLength) { checkCuts(readPendingRequest, documentWith(complete)); }

TEST(readPendingRequest, acceptsAtMost65536Bytes) { checkSizeLimit(readPendingRequest, documentWith(complete)); }

}  // namespace
}  // namespace launcher_stub
