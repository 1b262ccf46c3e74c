#include "rules.h"

namespace launcher_stub::decision_space {

const char* brokenRule(const Step& step) {
  for (const auto& rules : {rulesOfWrites(), rulesOfStarts(), rulesOfAttempts()}) {
    for (const Rule& rule : rules) {
      if (!rule.holds(step)) return rule.name;
    }
  }
  return nullptr;
}

}  // namespace launcher_stub::decision_space
