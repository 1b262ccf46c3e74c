// The words for each finding: a code for programs, a sentence for people.
#pragma once

#include <string_view>

#include "explain/findings.h"

namespace launcher_stub::explain {

struct Wording {
  std::string_view code;
  std::string_view sentence;
  std::string_view remark = {};  // to be added in parentheses
};

Wording wordingOf(Standing standing);
Wording wordingOf(RequestStanding standing);
Wording wordingOf(Condition condition);
Wording wordingOf(MarkerStanding standing);
Wording wordingOf(RestartStanding standing);
Wording wordingOf(StateFrom from);
Wording wordingOf(RootFrom from);

std::string_view kindName(RuntimeKind kind);

}  // namespace launcher_stub::explain
