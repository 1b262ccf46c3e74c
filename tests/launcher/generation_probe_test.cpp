#include "launcher/generation_probe.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "tests/simulation/sim_os.h"

namespace launcher_stub {
namespace {

using sim::SimOs;

const std::wstring probedPath = L"C:\\state\\boot-v1.json";

std::optional<std::uint64_t> probe(const std::string& document) {
  SimOs sim;
  sim.writeFile(probedPath, document);
  return probeGeneration(probedPath);
}

TEST(probeGeneration, takesAStringOfDigitsThatFitsSixtyFourBits) {
  struct Case {
    const char* why;
    std::string member;
    std::optional<std::uint64_t> generation;
  };
  const Case cases[] = {
      {"a plain number in digits", "\"41\"", 41},
      {"zero", "\"0\"", 0},
      {"leading zeros are digits too", "\"007\"", 7},
      {"the largest", "\"18446744073709551615\"", 18446744073709551615U},
      {"one above the largest", "\"18446744073709551616\"", std::nullopt},
      {"a digit more", "\"184467440737095516150\"", std::nullopt},
      {"nothing", "\"\"", std::nullopt},
      {"a letter at the end", "\"12a\"", std::nullopt},
      {"a letter at the start", "\"a12\"", std::nullopt},
      {"a sign", "\"-1\"", std::nullopt},
      {"the other sign", "\"+1\"", std::nullopt},
      {"a space before", "\" 1\"", std::nullopt},
      {"a space behind", "\"1 \"", std::nullopt},
      {"a fraction", "\"1.0\"", std::nullopt},
      {"a zero byte at the end", "\"1\\u0000\"", std::nullopt},
      {"a JSON number", "5", std::nullopt},
      {"null", "null", std::nullopt},
      {"an array around it", "[\"5\"]", std::nullopt},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(probe("{\"generation\":" + c.member + "}"), c.generation);
  }
}

TEST(probeGeneration, givesNoneForADocumentThatIsNoObjectWithTheMember) {
  struct Case {
    const char* why;
    std::string document;
  };
  const Case cases[] = {
      {"an empty file", ""},
      {"cut in the middle", "{\"generation\":\"12\""},
      {"data behind the document", "{\"generation\":\"12\"} x"},
      {"an array at the top", "[\"generation\",\"12\"]"},
      {"a string at the top", "\"12\""},
      {"no such member", "{\"schemaVersion\":1}"},
      {"another case", "{\"Generation\":\"12\"}"},
      {"one level down", "{\"state\":{\"generation\":\"12\"}}"},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(probe(c.document), std::nullopt);
  }
}

TEST(probeGeneration, asksNothingElseOfTheDocument) {
  EXPECT_EQ(probe("{\"schemaVersion\":9,\"generation\":\"12\",\"active\":7}"), 12U);
}

TEST(probeGeneration, givesNoneForAFileThatCannotBeReadWhole) {
  SimOs sim;
  const std::string document = "{\"generation\":\"12\"}";

  EXPECT_EQ(probeGeneration(probedPath), std::nullopt) << "missing";

  sim.writeFile(probedPath, document + std::string(65536 - document.size(), ' '));
  EXPECT_EQ(probeGeneration(probedPath), 12U) << "the largest file that is read";

  sim.writeFile(probedPath, document + std::string(65537 - document.size(), ' '));
  EXPECT_EQ(probeGeneration(probedPath), std::nullopt) << "one byte larger";

  sim.writeFile(probedPath, document);
  sim.fail(sim::Call::readFile, probedPath);
  EXPECT_EQ(probeGeneration(probedPath), std::nullopt) << "not readable";
}

}  // namespace
}  // namespace launcher_stub
