// The program that libFuzzer drives. FUZZ_TARGET names the target; without one it lists them.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/fuzz/fuzz_targets.h"

namespace {

using launcher_stub::fuzz::Target;

const Target* chosen = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* name = std::getenv("FUZZ_TARGET");
  for (const Target& target : launcher_stub::fuzz::targets()) {
    if (name == nullptr) std::puts(target.name);
    if (name != nullptr && std::strcmp(name, target.name) == 0) chosen = &target;
  }
  if (chosen == nullptr) std::exit(name == nullptr ? 0 : 2);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  chosen->run({reinterpret_cast<const char*>(data), size});
  return 0;
}
