// How each slot stands in the choice that the decision step has made.
#pragma once

#include <string>
#include <vector>

#include "explain/findings.h"
#include "state/decision.h"

namespace launcher_stub::explain {

// A start that was decided: what went in, and what came out.
struct DecidedStart {
  bool bootstrapUnderstood = false;
  StartInput input;
  StartFindings findings;
  LauncherModel model;
};

// Nothing was chosen, and nothing will be stored: the generation is at its end.
bool endsAtLastGeneration(const DecidedStart& start);

std::vector<SlotFinding> slotsInChoice(const std::wstring& stateRoot, const DecidedStart& start);

// The slots in the store, in the order of their names, that are not among `named`.
std::vector<UnnamedSlot> unnamedSlots(const std::wstring& stateRoot, const std::vector<std::string>& named,
                                      const BootState& state);

RequestFinding requestInChoice(const DecidedStart& start, Condition document);

}  // namespace launcher_stub::explain
