#include "state/boot_state.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "tests/state/record_cases.h"

namespace launcher_stub {
namespace {

BootState fullState() {
  return {.generation = 41,
          .active = "aaaa",
          .previous = "bbbb",
          .candidate = "cccc",
          .lastRequestId = "request-1",
          .attemptCount = 2,
          .rejected = {"dddd", "0000"},
          .recovered = true};
}

// An array of `count` times the same element.
std::string entries(int count, const std::string& element) {
  std::string joined = element;
  for (int i = 1; i < count; ++i) joined += ',' + element;
  return '[' + joined + ']';
}

// A valid document with some members replaced (or, with an empty text, left out).
std::string documentBut(const std::map<std::string, std::string>& changes) {
  std::map<std::string, std::string> members = {{"generation", "41"},       {"attemptCount", "2"},
                                                {"active", R"("aaaa")"},    {"previous", R"("bbbb")"},
                                                {"candidate", R"("cccc")"}, {"lastRequestId", R"("request-1")"},
                                                {"recovered", "true"},      {"rejected", R"(["dddd","0000"])"}};
  for (const auto& [key, text] : changes) members[key] = text;
  std::string joined;
  for (const auto& [key, text] : members) {
    if (text.empty()) continue;
    if (!joined.empty()) joined += ',';
    joined += '"' + key + "\":" + text;
  }
  return documentWith(joined);
}

TEST(readBootState, givesAllFields) {
  BootState state;
  std::string error;

  ASSERT_TRUE(readBootState(documentBut({}), state, error)) << error;
  EXPECT_EQ(state, fullState());
}

TEST(readBootState, clearsWhatIsAbsent) {
  BootState state = fullState();
  std::string error;

  ASSERT_TRUE(readBootState(documentWith(R"("generation":0,"attemptCount":0,"rejected":[])"), state, error)) << error;
  EXPECT_EQ(state, BootState{});
}

TEST(readBootState, checksTheHeader) {
  checkHeaderRules(readBootState, R"("generation":0,"attemptCount":0,"rejected":[])");
}

TEST(readBootState, holdsNumbersToTheirRange) {
  const RecordCase cases[] = {
      {"no generation", documentBut({{"generation", ""}}), "invalid generation"},
      {"generation is a string", documentBut({{"generation", R"("41")"}}), "invalid generation"},
      {"generation with a sign", documentBut({{"generation", "-1"}}), "invalid generation"},
      {"generation with a fraction", documentBut({{"generation", "1.0"}}), "invalid generation"},
      {"generation with an exponent", documentBut({{"generation", "1e3"}}), "invalid generation"},
      {"greatest generation", documentBut({{"generation", "18446744073709551615"}}), accepted},
      {"generation beyond 64 bits", documentBut({{"generation", "18446744073709551616"}}), "invalid generation"},
      {"no count", documentBut({{"attemptCount", ""}}), "invalid attemptCount"},
      {"count is null", documentBut({{"attemptCount", "null"}}), "invalid attemptCount"},
      {"count with a sign", documentBut({{"attemptCount", "-0"}}), "invalid attemptCount"},
      {"greatest count", documentBut({{"attemptCount", "4294967295"}}), accepted},
      {"count beyond 32 bits", documentBut({{"attemptCount", "4294967296"}}), "attemptCount overflow"},
      {"greatest of 64 bits", documentBut({{"attemptCount", "18446744073709551615"}}), "attemptCount overflow"},
      {"count beyond 64 bits", documentBut({{"attemptCount", "18446744073709551616"}}), "invalid attemptCount"},
  };
  checkRecords(readBootState, cases);
}

TEST(readBootState, keepsTheGreatestNumbers) {
  BootState state;
  std::string error;

  ASSERT_TRUE(readBootState(documentBut({{"generation", "18446744073709551615"}, {"attemptCount", "4294967295"}}),
                            state, error));
  EXPECT_EQ(state.generation, 18446744073709551615u);
  EXPECT_EQ(state.attemptCount, 4294967295u);
}

TEST(readBootState, holdsEverySlotToTheRuleOfSlotNames) {
  for (const std::string key : {"active", "previous", "candidate"}) {
    SCOPED_TRACE(key);
    const std::string wrongType = "invalid " + key;
    const RecordCase cases[] = {
        {"absent", documentBut({{key, ""}}), accepted},
        {"null is not absent", documentBut({{key, "null"}}), wrongType},
        {"a number", documentBut({{key, "1234"}}), wrongType},
        {"the seed", documentBut({{key, R"("seed")"}}), "invalid slot"},
        {"upper case", documentBut({{key, R"("ABCD")"}}), "invalid slot"},
        {"3 bytes", documentBut({{key, R"("abc")"}}), "invalid slot"},
        {"empty", documentBut({{key, R"("")"}}), "invalid slot"},
        {"64 digits", documentBut({{key, '"' + std::string(64, '9') + '"'}}), accepted},
        {"65 digits", documentBut({{key, '"' + std::string(65, '9') + '"'}}), "invalid slot"},
    };
    checkRecords(readBootState, cases);
  }
}

TEST(readBootState, holdsTheRequestIdToTheRuleOfTokens) {
  const RecordCase cases[] = {
      {"absent", documentBut({{"lastRequestId", ""}}), accepted},
      {"null is not absent", documentBut({{"lastRequestId", "null"}}), "invalid lastRequestId"},
      {"7 bytes", documentBut({{"lastRequestId", R"("request")"}}), "invalid token"},
      {"8 bytes", documentBut({{"lastRequestId", R"("request1")"}}), accepted},
      {"65 bytes", documentBut({{"lastRequestId", '"' + std::string(65, 'r') + '"'}}), "invalid token"},
      {"dot", documentBut({{"lastRequestId", R"("request.1")"}}), "invalid token"},
  };
  checkRecords(readBootState, cases);
}

TEST(readBootState, holdsTheRejectedListToItsRules) {
  const RecordCase cases[] = {
      {"absent", documentBut({{"rejected", ""}}), "invalid rejected"},
      {"an object", documentBut({{"rejected", "{}"}}), "invalid rejected"},
      {"a string", documentBut({{"rejected", R"("abcd")"}}), "invalid rejected"},
      {"empty", documentBut({{"rejected", "[]"}}), accepted},
      {"64 entries", documentBut({{"rejected", entries(64, R"("abcd")")}}), accepted},
      {"65 entries", documentBut({{"rejected", entries(65, R"("abcd")")}}), "invalid rejected"},
      {"the number of entries before the entries", documentBut({{"rejected", entries(65, "1")}}), "invalid rejected"},
      {"entry is a number", documentBut({{"rejected", "[1]"}}), "invalid rejected slot"},
      {"later entry is a number", documentBut({{"rejected", R"(["abcd",1])"}}), "invalid rejected slot"},
      {"entry is the seed", documentBut({{"rejected", R"(["seed"])"}}), "invalid slot"},
      {"entries in order: name first", documentBut({{"rejected", R"(["seed",1])"}}), "invalid slot"},
      {"entries in order: type first", documentBut({{"rejected", R"([1,"seed"])"}}), "invalid rejected slot"},
  };
  checkRecords(readBootState, cases);
}

TEST(readBootState, keepsRepeatedRejectedSlotsInOrder) {
  BootState state;
  state.rejected = {"ffff"};
  std::string error;

  ASSERT_TRUE(readBootState(documentBut({{"rejected", R"(["bbbb","aaaa","bbbb"])"}}), state, error));
  EXPECT_EQ(state.rejected, (std::vector<std::string>{"bbbb", "aaaa", "bbbb"}));
}

TEST(readBootState, takesTheRecoveredFlagAsABoolean) {
  const RecordCase cases[] = {
      {"true", documentBut({{"recovered", "true"}}), accepted},
      {"false", documentBut({{"recovered", "false"}}), accepted},
      {"absent", documentBut({{"recovered", ""}}), accepted},
      {"zero", documentBut({{"recovered", "0"}}), "invalid recovered"},
      {"null", documentBut({{"recovered", "null"}}), "invalid recovered"},
      {"text", documentBut({{"recovered", R"("true")"}}), "invalid recovered"},
  };
  checkRecords(readBootState, cases);

  BootState state;
  state.recovered = true;
  std::string error;
  ASSERT_TRUE(readBootState(documentBut({{"recovered", "false"}}), state, error));
  EXPECT_FALSE(state.recovered);
}

TEST(readBootState, reportsTheFirstOfTwoFaults) {
  const std::string wrongName = R"("x")";
  const RecordCase cases[] = {
      {"generation before count", documentBut({{"generation", "-1"}, {"attemptCount", "-1"}}), "invalid generation"},
      {"count before names", documentBut({{"attemptCount", "4294967296"}, {"active", "1"}}), "attemptCount overflow"},
      {"active before previous", documentBut({{"active", "1"}, {"previous", "1"}}), "invalid active"},
      {"previous before candidate", documentBut({{"previous", "1"}, {"candidate", "1"}}), "invalid previous"},
      {"candidate before id", documentBut({{"candidate", "1"}, {"lastRequestId", "1"}}), "invalid candidate"},
      {"types before names", documentBut({{"active", wrongName}, {"lastRequestId", "1"}}), "invalid lastRequestId"},
      {"slots before the id", documentBut({{"candidate", wrongName}, {"lastRequestId", wrongName}}), "invalid slot"},
      {"id before the list", documentBut({{"lastRequestId", wrongName}, {"rejected", "1"}}), "invalid token"},
      {"list before the flag", documentBut({{"rejected", "1"}, {"recovered", "1"}}), "invalid rejected"},
      {"flag before the entries", documentBut({{"recovered", "1"}, {"rejected", "[1]"}}), "invalid recovered"},
  };
  checkRecords(readBootState, cases);
}

TEST(writeBootState, writesMembersByKey) {
  EXPECT_EQ(writeBootState(fullState()),
            R"({"active":"aaaa","attemptCount":2,"candidate":"cccc","generation":41,"lastRequestId":"request-1",)"
            R"("previous":"bbbb","recovered":true,"rejected":["dddd","0000"],"schemaVersion":1})");
}

TEST(writeBootState, leavesOutWhatIsAbsentOrFalse) {
  EXPECT_EQ(writeBootState(BootState{}), R"({"attemptCount":0,"generation":0,"rejected":[],"schemaVersion":1})");
}

TEST(writeBootState, isReadBackToTheSameState) {
  BootState longest = fullState();
  longest.generation = ~std::uint64_t{0};
  longest.attemptCount = ~std::uint32_t{0};
  longest.lastRequestId = std::string(64, 'Z');
  longest.rejected.assign(64, std::string(64, 'f'));
  BootState onlyActive;
  onlyActive.active = "aaaa";
  for (const BootState& written : {BootState{}, fullState(), longest, onlyActive}) {
    const std::string text = writeBootState(written);
    SCOPED_TRACE(text);
    BootState read = fullState();
    std::string error;

    ASSERT_TRUE(readBootState(text, read, error)) << error;
    EXPECT_EQ(read, written);
    EXPECT_EQ(writeBootState(read), text);
  }
}

TEST(readBootState, refusesADocumentCutAtAnyLength) {
  checkCuts(readBootState, writeBootState(fullState()));
  checkCuts(readBootState, writeBootState(BootState{}));
  checkCuts(readBootState, "\n" + documentBut({}));
}

TEST(readBootState, givesADocumentThatLostAByteAsAnotherStateOrNotAtAll) {
  // A lost digit may leave a valid document, but every byte of it counts.
  const std::string text = writeBootState(fullState());
  for (std::size_t place = 0; place < text.size(); ++place) {
    std::string damaged = text;
    damaged.erase(place, 1);
    SCOPED_TRACE(damaged);
    BootState state;
    std::string error;
    if (!readBootState(damaged, state, error)) continue;
    BootState again;
    ASSERT_TRUE(readBootState(writeBootState(state), again, error));
    EXPECT_EQ(again, state);
    EXPECT_NE(state, fullState());
  }
}

TEST(readBootState, acceptsAtMost65536Bytes) { checkSizeLimit(readBootState, writeBootState(fullState())); }

}  // namespace
}  // namespace launcher_stub
