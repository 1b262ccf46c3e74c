// What must hold after every step, whatever came before it.
#pragma once

#include <span>

#include "step.h"

namespace launcher_stub::decision_space {

struct Rule {
  const char* name;
  bool (*holds)(const Step& step);
};

std::span<const Rule> rulesOfWrites();
std::span<const Rule> rulesOfStarts();
std::span<const Rule> rulesOfAttempts();

// The name of the first rule that does not hold; null when all do.
const char* brokenRule(const Step& step);

}  // namespace launcher_stub::decision_space
