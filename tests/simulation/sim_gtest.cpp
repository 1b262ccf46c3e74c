// A machine that has noticed misuse fails the test in which it lived.
#include <gtest/gtest.h>

#include "tests/simulation/sim_os.h"

namespace launcher_stub::sim {
namespace {

void failTest(const std::string& text) { ADD_FAILURE() << text; }

const bool installed = [] {
  SimOs::setProblemHandler(failTest);
  return true;
}();

}  // namespace
}  // namespace launcher_stub::sim
