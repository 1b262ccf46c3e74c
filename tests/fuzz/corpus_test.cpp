// Runs every target with the inputs that are kept in the repository.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/fuzz/fuzz_targets.h"

namespace launcher_stub::fuzz {
namespace {

std::vector<std::filesystem::path> inputsOf(const Target& target) {
  std::vector<std::filesystem::path> inputs;
  for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(FUZZ_CORPUS) / target.name)) {
    inputs.push_back(entry.path());
  }
  return inputs;
}

std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// A property that does not hold ends the program: this says with which input.
std::string inputAtWork;

const bool handlerInstalled = [] {
  (void)std::signal(SIGABRT, [](int) { std::fprintf(stderr, "with the input %s\n", inputAtWork.c_str()); });
  return true;
}();

class fuzzTarget : public testing::TestWithParam<Target> {};

TEST_P(fuzzTarget, holdsItsPropertiesOnEveryInputOfItsCorpus) {
  const std::vector<std::filesystem::path> inputs = inputsOf(GetParam());
  ASSERT_FALSE(inputs.empty());
  for (const std::filesystem::path& input : inputs) {
    inputAtWork = input;
    GetParam().run(contentsOf(input));
    inputAtWork.clear();
  }
}

TEST_P(fuzzTarget, holdsItsPropertiesWithoutAnyInput) { GetParam().run({}); }

INSTANTIATE_TEST_SUITE_P(all, fuzzTarget, testing::ValuesIn(targets()),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

}  // namespace
}  // namespace launcher_stub::fuzz
