// Tables of documents for the record readers, and the rules that all of those readers share.
#pragma once

#include <gtest/gtest.h>

#include <span>
#include <string>
#include <string_view>

#include "tests/support/exact_bytes.h"

namespace launcher_stub {

constexpr std::string_view accepted = "accepted";

struct RecordCase {
  const char* why;
  std::string document;
  std::string_view outcome;  // the error, or `accepted`
};

template <typename Record>
using RecordReader = bool (*)(std::string_view, Record&, std::string&);

// The error, or `accepted`.
template <typename Record>
std::string outcomeOf(RecordReader<Record> read, std::string_view document) {
  const ExactBytes bytes(document);
  Record record;
  std::string error;
  return read(bytes.view(), record, error) ? std::string(accepted) : error;
}

template <typename Record>
void checkRecords(RecordReader<Record> read, std::span<const RecordCase> cases) {
  for (const RecordCase& c : cases) {
    SCOPED_TRACE(testing::Message() << c.why << ": " << c.document.substr(0, 200));
    EXPECT_EQ(outcomeOf(read, c.document), c.outcome);
  }
}

// A document of schema version 1 with these members: "\"a\":1,\"b\":2", or none.
inline std::string documentWith(std::string_view members) {
  return "{\"schemaVersion\":1" + std::string(members.empty() ? "" : ",") + std::string(members) + "}";
}

// `members` make up a document that `read` accepts.
template <typename Record>
void checkHeaderRules(RecordReader<Record> read, const std::string& members) {
  const auto withVersion = [&](const std::string& version) {
    return "{\"schemaVersion\":" + version + "," + members + "}";
  };
  const RecordCase cases[] = {
      {"version 1", withVersion("1"), accepted},
      {"the header may stand last", "{" + members + ",\"schemaVersion\":1}", accepted},
      {"unknown keys are ignored", withVersion("1,\"unknown\":[{}]"), accepted},
      {"nothing", "", "missing value"},
      {"the parser's text", withVersion("1") + "x", "trailing data"},
      {"array at the top", "[]", "expected object"},
      {"number at the top", "1", "expected object"},
      {"no version", "{" + members + "}", "missing schemaVersion"},
      {"version in a string", withVersion("\"1\""), "missing schemaVersion"},
      {"version null", withVersion("null"), "missing schemaVersion"},
      {"version with a fraction", withVersion("1.0"), "invalid schemaVersion"},
      {"version with a sign", withVersion("-1"), "invalid schemaVersion"},
      {"version with an exponent", withVersion("1e0"), "invalid schemaVersion"},
      {"version beyond 64 bits", withVersion("18446744073709551616"), "invalid schemaVersion"},
      {"next version", withVersion("2"), "unsupported major"},
      {"version 0", withVersion("0"), "unsupported major"},
      {"the version comes before all members", "{\"schemaVersion\":2}", "unsupported major"},
  };
  checkRecords(read, cases);
}

// `document` is accepted, but no shorter beginning of it.
template <typename Record>
void checkCuts(RecordReader<Record> read, std::string_view document) {
  ASSERT_EQ(outcomeOf(read, document), accepted);
  for (std::size_t length = 0; length < document.size(); ++length) {
    SCOPED_TRACE(document.substr(0, length));
    EXPECT_NE(outcomeOf(read, document.substr(0, length)), accepted);
  }
}

// `document`, padded in front, is accepted with 65536 bytes and refused with one more.
template <typename Record>
void checkSizeLimit(RecordReader<Record> read, const std::string& document) {
  const std::string padding(65536 - document.size(), ' ');
  EXPECT_EQ(outcomeOf(read, padding + document), accepted);
  EXPECT_EQ(outcomeOf(read, ' ' + padding + document), "record too large");
}

}  // namespace launcher_stub
