// The kinds of launches that are killed: what lies on the disk when they begin, and what their runtimes do.
#pragma once

#include <string>
#include <vector>

#include "tests/kills/foretold.h"

namespace end_to_end::kills {

struct Kind {
  const char* name;
  unsigned weight;  // of a hundred kills about so many are of this kind
  World world;
  Acts acts = {};
  bool told = false;     // the runtimes are told to finish before the launch that is killed, too
  bool newRoot = false;  // there is no state root yet
};

// All kinds but the promotion.
const std::vector<Kind>& kinds();

// A candidate that proves itself; the interesting moment comes a minute later.
const Kind& promotion();

// The script of a slot's runtime. `grandchild`: it starts another process first, which stays as well.
// Each start logs the command `beginNote` first of all.
std::string scriptOf(const Acts& acts, const std::string& slot, bool grandchild);

inline constexpr const char* beginNote = "note begin";

// The file in the install directory that tells the runtimes to finish.
inline const std::wstring finishFile = L"finish";

}  // namespace end_to_end::kills
