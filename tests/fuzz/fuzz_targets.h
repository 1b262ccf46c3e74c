// Code under hostile input: each target is a function from bytes to nothing, which ends the program when a property
// does not hold. A fuzzer calls it with inputs of its own (`./dev fuzz`), the tests with the files of
// tests/fuzz/corpus.
#pragma once

#include <string_view>
#include <vector>

namespace launcher_stub::fuzz {

struct Target {
  const char* name;  // also of its directory of inputs
  void (*run)(std::string_view bytes);
};

// Every target that the program holds.
std::vector<Target>& targets();

// A target registers itself: `const Registration registered({"name", run});`
struct Registration {
  explicit Registration(const Target& target) { targets().push_back(target); }
};

// Ends the program with `property` as its last words unless it holds.
void require(bool holds, std::string_view property);

}  // namespace launcher_stub::fuzz
