#include <gtest/gtest.h>

#include "json/messages.h"
#include "tests/json/parsing.h"
#include "tests/json/worst_cases.h"

namespace launcher_stub {
namespace {

TEST(parseJsonDocument, readsTheWorstCasesForWhatTheyAre) {
  for (const WorstCase& c : worstCases()) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.document.size(), kMaxRecordBytes);
    EXPECT_EQ(parse(c.document).error, c.outcome);
  }
}

}  // namespace
}  // namespace launcher_stub
