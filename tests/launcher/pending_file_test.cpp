#include "launcher/pending_file.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

const std::wstring root = L"C:\\state";
const std::wstring pendingPath = L"C:\\state\\pending-v1.json";

FoundPending readDocument(const std::string& document) {
  SimOs sim;
  sim.writeFile(pendingPath, document);
  return readPendingFile(root);
}

TEST(readPendingFile, readsAValidRequest) {
  const FoundPending found = readDocument(sim::pendingDocument("request-0001", 12, "bbbb"));

  ASSERT_TRUE(found.request.has_value());
  EXPECT_EQ(found.request->requestId, "request-0001");
  EXPECT_EQ(found.request->expectedGeneration, 12U);
  EXPECT_EQ(found.request->candidate, "bbbb");
  EXPECT_FALSE(found.unsupportedMajor);
}

TEST(readPendingFile, tellsOnlyANewerMajorVersionFromOtherFaults) {
  struct Case {
    const char* why;
    std::string document;
    bool unsupportedMajor;
  };
  const Case cases[] = {
      {"a version to come", "{\"schemaVersion\":2}", true},
      {"the largest version", "{\"schemaVersion\":18446744073709551615,\"requestId\":1}", true},
      {"version 0", "{\"schemaVersion\":0}", true},
      {"no version number", "{\"schemaVersion\":1.5}", false},
      {"no version", "{\"requestId\":\"request-0001\"}", false},
      {"no object", "[2]", false},
      {"a newer version, but cut", "{\"schemaVersion\":2", false},
      {"a slot that cannot be a candidate", sim::pendingDocument("request-0001", 12, "seed"), false},
      {"no token", sim::pendingDocument("short", 12, "bbbb"), false},
      {"empty", "", false},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const FoundPending found = readDocument(c.document);
    EXPECT_EQ(found.unsupportedMajor, c.unsupportedMajor);
    EXPECT_FALSE(found.request.has_value());
  }
}

TEST(readPendingFile, findsNothingInAMissingOrUnreadableFile) {
  SimOs sim;
  EXPECT_FALSE(readPendingFile(root).request.has_value()) << "missing";

  sim.writeFile(pendingPath, sim::pendingDocument("request-0001", 12, "bbbb"));
  sim.fail(Call::readFile, pendingPath);
  const FoundPending found = readPendingFile(root);

  EXPECT_FALSE(found.request.has_value()) << "not readable";
  EXPECT_FALSE(found.unsupportedMajor);
  EXPECT_EQ(sim.lines(), Lines{});
}

}  // namespace
}  // namespace launcher_stub
