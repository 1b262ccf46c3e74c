// The documents that README.md and docs/ show are given to the product's own readers. A block says what it is:
//
//   ```json pending-v1.json                        must be read
//   ```json pending-v1.json invalid "invalid slot" must be refused with this text
//   ```json output                                 what a tool prints: well-formed
//
// and "save PATH" behind the name is for the test that follows the afternoon.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "documents/example_blocks.h"
#include "json/parser.h"
#include "state/attempt_record.h"
#include "state/boot_state.h"
#include "state/bootstrap_record.h"
#include "state/delivery_record.h"
#include "state/launcher_model.h"
#include "state/pending_request.h"
#include "state/restart_request.h"

namespace launcher_stub {
namespace {

using documents::Block;

using Reader = std::function<bool(const std::string& document, std::string& error)>;

template <typename Record>
Reader readerOf(bool (*read)(std::string_view, Record&, std::string&)) {
  return [read](const std::string& document, std::string& error) {
    Record record;
    return read(document, record, error);
  };
}

const std::map<std::string, Reader>& readers() {
  static const std::map<std::string, Reader> byName = {
      {"bootstrap-v1.json", readerOf(readBootstrap)},
      {"boot-v1.json", readerOf(readBootState)},
      {"boot-v1.previous.json", readerOf(readBootState)},
      {"attempts/boot-v1.json", readerOf(readAttemptRecord)},
      {"ready-v1", readerOf(readAttemptRecord)},
      {"healthy-v1", readerOf(readAttemptRecord)},
      {"restart-v1.json", readerOf(readRestartRequest)},
      {"pending-v1.json", readerOf(readPendingRequest)},
      {"delivery-v1.json", readerOf(readDelivery)},
      {"output",
       [](const std::string& document, std::string& error) {
         JsonValue value;
         return parseJsonDocument(document.data(), document.size(), value, error);
       }},
  };
  return byName;
}

struct Example {
  std::string kind;
  std::string refusal;  // empty: the document is right
};

std::optional<Example> exampleOf(const std::string& words) {
  static const std::regex form(R"re(^(\S+)(?: invalid "([^"]+)")?(?: save \S+)?$)re");
  std::smatch match;
  if (!std::regex_match(words, match, form)) return std::nullopt;
  return Example{match[1], match[2]};
}

std::vector<Block> jsonBlocks() {
  std::vector<Block> found;
  for (const std::string& path : documents::allDocuments()) {
    for (const Block& block : documents::blocksOf(path)) {
      if (block.language == "json") found.push_back(block);
    }
  }
  return found;
}

void checkExample(const Block& block) {
  const std::optional<Example> example = exampleOf(block.words);
  ASSERT_TRUE(example && readers().contains(example->kind)) << "a JSON block that does not say what it is";

  std::string error;
  const bool accepted = readers().at(example->kind)(block.content, error);

  EXPECT_EQ(accepted, example->refusal.empty()) << error;
  if (!accepted) {
    EXPECT_EQ(error, example->refusal);
  }
}

TEST(exampleDocument, isReadByTheLauncherOrRefusedWithTheTextThatStandsThere) {
  for (const Block& block : jsonBlocks()) {
    SCOPED_TRACE(block.place + " " + block.words + "\n" + block.content);
    checkExample(block);
  }
}

TEST(exampleDocument, isThereForEachKindInTheReferenceRightAndWrong) {
  std::set<std::string> right, wrong;
  for (const Block& block : documents::blocksOf("docs/state-reference.md")) {
    const auto example = exampleOf(block.words);
    if (block.language == "json" && example) (example->refusal.empty() ? right : wrong).insert(example->kind);
  }
  for (const char* kind : {"bootstrap-v1.json", "boot-v1.json", "attempts/boot-v1.json", "ready-v1", "restart-v1.json",
                           "pending-v1.json", "delivery-v1.json"}) {
    EXPECT_TRUE(right.contains(kind)) << kind;
  }
  EXPECT_GE(wrong.size(), 5U);
}

// What is shown as the launcher's own writing is what it writes, byte for byte.
TEST(exampleDocument, ofTheCompactFormIsWrittenTheSameWay) {
  int compared = 0;
  for (const Block& block : jsonBlocks()) {
    if (block.words != "boot-v1.json" || block.content.find(": ") != std::string::npos) continue;
    SCOPED_TRACE(block.place);
    BootState state;
    std::string error;
    ASSERT_TRUE(readBootState(block.content, state, error)) << error;
    EXPECT_EQ(writeBootState(state) + "\n", block.content);
    ++compared;
  }
  EXPECT_GE(compared, 1);
}

TEST(limits, standInTheDocumentsAsInTheCode) {
  const std::string guide = documents::readDocument("docs/integrators-guide.md");
  const std::string reference = documents::readDocument("docs/state-reference.md");
  const auto number = [](auto value) { return std::to_string(value); };
  struct Case {
    const std::string& document;
    std::string text;
  };
  const Case cases[] = {
      {guide, "| every document | " + number(kMaxRecordBytes) + " bytes |"},
      {guide, "| nesting of a document | " + number(kMaxJsonDepth) + " levels below the outermost value |"},
      {guide, "| a string in a document, keys included | " + number(kMaxStringBytes) + " bytes of UTF-8 |"},
      {guide, "| rejected slots remembered | " + number(maxRejectedSlots) + "; the oldest goes first |"},
      {guide, "| " + number(healthyWithinMs / 1000) + " s without `healthy-v1` |"},
      {guide, "| " + number(soakMs / 1000) + " s after the mark was seen, still running |"},
      {reference, "At most " + number(kMaxRecordBytes) + " bytes: `record too large`"},
      {reference, "Nested at most " + number(kMaxJsonDepth) + " deep: `depth exceeded`"},
      {reference, "at most " + number(kMaxStringBytes)},
      {reference, "at most " + number(maxRejectedSlots) + " slot names, oldest first"},
      {reference, "`attemptCount` below " + number(maxCandidateStarts)},
      {reference, "| a candidate's time for `healthy-v1`, from its start | " + number(healthyWithinMs) + " ms |"},
      {reference, "| from that mark to the promotion | " + number(soakMs) + " ms |"},
      {reference, "up to " + number(std::numeric_limits<std::uint64_t>::max())},
      {reference, "up to " + number(std::numeric_limits<std::uint32_t>::max())},
  };
  for (const Case& c : cases) EXPECT_NE(c.document.find(c.text), std::string::npos) << c.text;
}

}  // namespace
}  // namespace launcher_stub
