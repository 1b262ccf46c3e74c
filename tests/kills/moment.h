// When a launcher is killed: some time after its start, or right after something was seen to happen.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/end_to_end/harness.h"
#include "tests/kills/foretold.h"
#include "tests/sweeps/chance.h"

namespace end_to_end::kills {

struct Moment {
  std::size_t step = 0;            // of what is foretold; 0: the launch's beginning
  std::uint64_t microseconds = 0;  // from then on
};

// A third of the moments are spread over the launch, the others follow a change of the disk closely; half of those of a
// launch that ends by itself fall around its end. `lengthMs`: how long the launch is expected to take.
Moment drawMoment(launcher_stub::sweeps::Chance& chance, const Foretold& foretold, std::uint64_t lengthMs);

std::string describe(const Moment& moment, const Foretold& foretold);

// Sees changes in an installation by the times and sizes of files: no file is opened, so nobody is disturbed, and a
// look is quick.
class ChangeSensor {
 public:
  explicit ChangeSensor(const Installation& installation);

  // Looks, and counts what is another than at the last look.
  void look();

  // This step of what is foretold has come about, as far as can be seen. Changes that follow each other too quickly
  // count as one, so it may be seen late, or never.
  bool hasSeen(const Foretold& foretold, std::size_t step) const;

 private:
  struct Watched {
    std::vector<std::wstring> paths;
    std::vector<std::uint64_t> signatures = {};
    std::size_t changes = 0;
  };
  enum Subject : std::uint8_t { state, previousState, request, attempts, starts, subjects };

  static Subject subjectOf(Change change);

  std::vector<Watched> watched_;
};

// Waits for the moment. False: the launcher ended before.
bool await(const Moment& moment, const Foretold& foretold, ChangeSensor& sensor, const Process& launcher);

}  // namespace end_to_end::kills
