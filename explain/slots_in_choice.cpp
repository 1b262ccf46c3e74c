#include "explain/slots_in_choice.h"

#include <algorithm>
#include <optional>

#include "launcher/start_input.h"
#include "os/directory.h"
#include "os/file_status.h"
#include "os/path.h"
#include "slots/file_names.h"
#include "slots/slot_store.h"
#include "state/messages.h"
#include "state/names.h"
#include "state/selection.h"

namespace launcher_stub::explain {
namespace {

bool chose(const DecidedStart& start, RuntimeKind kind) {
  return start.model.selected.has_value() && start.model.selectedKind == kind;
}

// Why trials are off: one of two documents was written for a newer launcher.
Standing trialsOff(const DecidedStart& start) {
  return start.bootstrapUnderstood ? Standing::requestNewer : Standing::bootstrapNewer;
}

// Of a slot that the choice does not take for runnable.
Standing notRunnable(const DecidedStart& start, const std::string& slot) {
  return start.input.exempt.contains(slot) ? Standing::foreignDelivery : Standing::incomplete;
}

Standing standingOfCandidate(const DecidedStart& start, const std::string& slot) {
  if (endsAtLastGeneration(start)) return Standing::generationAtEnd;
  if (start.model.state.candidate != slot) {
    return start.findings.candidateUsedUp ? Standing::startsUsedUp : Standing::replaced;
  }
  if (chose(start, kindCandidate)) return Standing::starts;
  switch (judgeCandidate(start.model)) {
    case CandidateVerdict::trialsOff:
      return trialsOff(start);
    case CandidateVerdict::cannotStart:
      return notRunnable(start, slot);
    case CandidateVerdict::startsUsedUp:
      return Standing::startsUsedUp;
    case CandidateVerdict::rejected:
      return Standing::rejected;
    case CandidateVerdict::canTry:
      break;
  }
  return Standing::comesAfter;  // not reached: one that can be tried is chosen
}

Standing standingOfTrusted(const DecidedStart& start, RuntimeKind kind, const std::string& slot) {
  if (endsAtLastGeneration(start)) return Standing::generationAtEnd;
  if (chose(start, kind)) return Standing::starts;
  return canStart(start.model, slot) ? Standing::comesAfter : notRunnable(start, slot);
}

Standing standingOfSeed(const DecidedStart& start) {
  if (endsAtLastGeneration(start)) return Standing::generationAtEnd;
  if (chose(start, kindSeed)) return Standing::starts;
  return start.input.seedRunnable ? Standing::comesAfter : Standing::seedMissing;
}

SlotFinding describe(const std::wstring& stateRoot, RuntimeKind kind, const std::string& slot, Standing standing) {
  SlotFinding finding{kind, slot, standing, false, false};
  if (standing == Standing::incomplete) {
    const std::wstring directory = slotDirectory(stateRoot, slot);
    finding.markerMissing = !os::pathIsPresent(os::joinPath(directory, files::complete));
    finding.entryMissing = !os::pathIsPresent(os::joinPath(directory, files::entry));
  }
  return finding;
}

RequestStanding standingOfVerdict(const DecidedStart& start, const std::string& slot) {
  switch (start.findings.request) {
    case RequestVerdict::notLookedAt:
      break;
    case RequestVerdict::staleGeneration:
      return RequestStanding::staleGeneration;
    case RequestVerdict::replayed:
      return RequestStanding::replayed;
    case RequestVerdict::rejectedSlot:
      return RequestStanding::rejected;
    case RequestVerdict::slotNotRunnable:
      return start.input.exempt.contains(slot) ? RequestStanding::foreignDelivery : RequestStanding::incomplete;
    case RequestVerdict::takenIn:
      return RequestStanding::takenIn;
  }
  return start.input.firstRun ? RequestStanding::firstRun : RequestStanding::statesUnreadable;
}

RequestStanding standingOfRequest(const DecidedStart& start, Condition document) {
  if (document == Condition::missing) return RequestStanding::none;
  if (!start.bootstrapUnderstood) return RequestStanding::bootstrapNewer;
  if (!start.input.candidateTrialAllowed) return RequestStanding::newer;
  if (!start.input.pending) return RequestStanding::unreadable;
  if (endsAtLastGeneration(start)) return RequestStanding::generationAtEnd;
  return standingOfVerdict(start, start.input.pending->candidate);
}

}  // namespace

bool endsAtLastGeneration(const DecidedStart& start) {
  const std::vector<TransitionEffect>& effects = start.model.effects;
  return !effects.empty() && effects.front().kind == EffectKind::ReportError &&
         std::get<std::string>(effects.front().record) == messages::generationOverflow;
}

std::vector<SlotFinding> slotsInChoice(const std::wstring& stateRoot, const DecidedStart& start) {
  std::vector<SlotFinding> slots;
  const auto add = [&](RuntimeKind kind, const std::string& slot, Standing standing) {
    slots.push_back(describe(stateRoot, kind, slot, standing));
  };
  const BootState* stored = storedState(start.input);
  const std::optional<std::string> candidate = stored != nullptr ? stored->candidate : std::nullopt;
  const std::optional<std::string>& next = start.model.state.candidate;
  if (candidate) add(kindCandidate, *candidate, standingOfCandidate(start, *candidate));
  if (next && next != candidate) add(kindCandidate, *next, standingOfCandidate(start, *next));
  const BootState& state = start.model.state;
  if (state.active) add(kindActive, *state.active, standingOfTrusted(start, kindActive, *state.active));
  if (state.previous) add(kindPrevious, *state.previous, standingOfTrusted(start, kindPrevious, *state.previous));
  add(kindSeed, std::string(seedSlotName), standingOfSeed(start));
  return slots;
}

std::vector<UnnamedSlot> unnamedSlots(const std::wstring& stateRoot, const std::vector<std::string>& named,
                                      const BootState& state) {
  std::vector<UnnamedSlot> unnamed;
  for (const os::DirectoryEntry& entry : os::listDirectory(os::joinPath(stateRoot, files::slots))) {
    std::string slot;
    for (const wchar_t character : entry.name) slot += character < 0x80 ? static_cast<char>(character) : '?';
    if (!isSlotName(slot) || std::ranges::find(named, slot) != named.end()) continue;
    const bool rejected = std::ranges::find(state.rejected, slot) != state.rejected.end();
    unnamed.push_back({slot, isSlotComplete(stateRoot, slot), rejected});
  }
  std::ranges::sort(unnamed, {}, &UnnamedSlot::slot);
  return unnamed;
}

RequestFinding requestInChoice(const DecidedStart& start, Condition document) {
  RequestFinding finding;
  finding.standing = standingOfRequest(start, document);
  finding.request = start.input.pending;
  finding.namesActive = finding.request && finding.request->candidate == start.model.state.active;
  finding.removed = std::ranges::any_of(
      start.model.effects, [](const TransitionEffect& effect) { return effect.kind == EffectKind::ClearPending; });
  return finding;
}

}  // namespace launcher_stub::explain
