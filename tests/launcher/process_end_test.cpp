#include "launcher/process_end.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>

#include "tests/launcher/scenario.h"

namespace launcher_stub {
namespace {

// How long the end of a run takes, in ms, when its box stays open for `openFor` ms.
std::uint64_t waitAtEnd(int result, std::uint64_t openFor) {
  SimOs sim;
  sim.setBoxStaysOpenFor(openFor);
  std::uint64_t waited = 0;
  (void)sim.runProcess([&] {
    os::showError("something failed");
    const std::uint64_t before = sim.now();
    EXPECT_EQ(endRun(result), result);
    waited = sim.now() - before;
    return 0;
  });
  if (openFor == sim::forever) sim.closeBox();
  return waited;
}

TEST(endRun, waitsForAnOpenBoxForAtMostThirtySeconds) {
  struct Case {
    const char* why;
    int result;
    std::uint64_t openFor;
    std::uint64_t waited;
  };
  const Case cases[] = {
      {"closed after a while", 1, 12'000, 12'000},
      {"closed at the last moment", 1, 30'000, 30'000},
      {"open for longer", 1, 45'000, 30'000},
      {"another code waits as well", -1073741819, 12'000, 12'000},
      {"a run that went well does not wait", 0, 12'000, 0},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(waitAtEnd(c.result, c.openFor), c.waited);
  }
}

TEST(endRun, endsAtOnceWhereNoBoxWasShown) {
  SimOs sim;
  const std::uint64_t before = sim.now();

  EXPECT_EQ(endRun(1), 1);

  EXPECT_EQ(sim.now(), before);
}

TEST(endRun, asksForNoWaitAfterASuccess) {
  SimOs sim;

  EXPECT_EQ(endRun(0), 0);

  EXPECT_EQ(sim.count(Call::waitForErrorBox), 0);
}

TEST(runToEnd, returnsWhatTheSequenceReturns) {
  SimOs sim;

  EXPECT_EQ(runToEnd([] { return 0; }), 0);
  EXPECT_EQ(runToEnd([] { return 7; }), 7);
}

TEST(runToEnd, letsAnExceptionThroughAfterUnwindingTheSequence) {
  SimOs sim;
  bool unwound = false;
  struct Guard {
    bool& flag;
    ~Guard() { flag = true; }
  };

  EXPECT_THROW((void)runToEnd([&]() -> int {
                 const Guard guard{unwound};
                 throw std::runtime_error("no memory");
               }),
               std::runtime_error);

  EXPECT_TRUE(unwound);
  EXPECT_EQ(sim.count(Call::waitForErrorBox), 0) << "nothing is said, nothing waited for";
}

TEST(processEnd, comesOnlyWhenTheBoxIsClosedAndKeepsTheCode) {
  SimOs sim;
  sim.setBoxStaysOpenFor(600'000);
  sim.remove(sim.installPath(L"bootstrap-v1.json"));

  EXPECT_EQ(sim.runLauncher(), 1);

  EXPECT_EQ(sim.lastRun().processEndedAt - sim.lastRun().startedAt, 600'000U);
}

}  // namespace
}  // namespace launcher_stub
