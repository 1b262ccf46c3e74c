#include "explain/wording.h"

namespace launcher_stub::explain {

Wording wordingOf(Standing standing) {
  switch (standing) {
    case Standing::starts:
      return {"starts", "would start"};
    case Standing::comesAfter:
      return {"comesAfter", "could start, but another one comes before it"};
    case Standing::incomplete:
      return {"incomplete", "is not complete"};
    case Standing::foreignDelivery:
      return {"foreignDelivery", "is of another delivery than the seed"};
    case Standing::rejected:
      return {"rejected", "is rejected"};
    case Standing::startsUsedUp:
      return {"startsUsedUp", "has used up its starts; the next start rejects it"};
    case Standing::replaced:
      return {"replaced", "is given up for the candidate of the pending request"};
    case Standing::bootstrapNewer:
      return {"bootstrapNewer", "is not tried: the bootstrap was written for a newer launcher"};
    case Standing::requestNewer:
      return {"requestNewer", "is not tried: the pending request was written for a newer launcher"};
    case Standing::seedMissing:
      return {"seedMissing", "has no executable"};
    case Standing::generationAtEnd:
      return {"generationAtEnd", "is not started: the generation is at its end"};
    case Standing::rootCannotBeHad:
      break;
  }
  return {"rootCannotBeHad", "is not started: there can be no state root"};
}

Wording wordingOf(RequestStanding standing) {
  switch (standing) {
    case RequestStanding::none:
      return {"none", "there is none"};
    case RequestStanding::takenIn:
      return {"takenIn", "would be taken in"};
    case RequestStanding::unreadable:
      return {"unreadable", "would not be taken in: it is not readable as a request"};
    case RequestStanding::newer:
      return {"newer", "would not be taken in: it was written for a newer launcher"};
    case RequestStanding::bootstrapNewer:
      return {"bootstrapNewer", "would not be looked at: the bootstrap was written for a newer launcher"};
    case RequestStanding::firstRun:
      return {"firstRun", "would not be looked at: this would be the first run"};
    case RequestStanding::statesUnreadable:
      return {"statesUnreadable", "would not be looked at: neither state file can be read"};
    case RequestStanding::generationAtEnd:
      return {"generationAtEnd", "would not be taken in: the generation is at its end"};
    case RequestStanding::rootCannotBeHad:
      return {"rootCannotBeHad", "would not be looked at: there can be no state root"};
    case RequestStanding::staleGeneration:
      return {"staleGeneration", "would not be taken in: it names another generation"};
    case RequestStanding::replayed:
      return {"replayed", "would not be taken in: it is the one that was taken in last"};
    case RequestStanding::rejected:
      return {"rejected", "would not be taken in: its slot is rejected"};
    case RequestStanding::incomplete:
      return {"incomplete", "would not be taken in: its slot is not complete"};
    case RequestStanding::foreignDelivery:
      break;
  }
  return {"foreignDelivery", "would not be taken in: its slot is of another delivery than the seed"};
}

Wording wordingOf(Condition condition) {
  switch (condition) {
    case Condition::missing:
      return {"missing", "missing"};
    case Condition::valid:
      return {"valid", "valid"};
    case Condition::invalid:
      return {"invalid", "invalid: "};
    case Condition::unreadable:
      break;
  }
  return {"unreadable", "cannot be read, or is larger than 65536 bytes"};
}

Wording wordingOf(MarkerStanding standing) {
  switch (standing) {
    case MarkerStanding::absent:
      return {"absent", "no"};
    case MarkerStanding::counts:
      return {"counts", "yes"};
    case MarkerStanding::otherAttempt:
      return {"otherAttempt", "no", "there is a marker of another attempt"};
    case MarkerStanding::unreadable:
      break;
  }
  return {"unreadable", "no", "there is an unreadable marker"};
}

Wording wordingOf(RestartStanding standing) {
  switch (standing) {
    case RestartStanding::absent:
      return {"absent", "not asked"};
    case RestartStanding::asked:
      return {"asked", "asked"};
    case RestartStanding::notOfThis:
      return {"notOfThis", "not asked", "there is a request of another attempt, or for an unknown update"};
    case RestartStanding::unreadable:
      break;
  }
  return {"unreadable", "not asked", "there is an unreadable request"};
}

Wording wordingOf(StateFrom from) {
  switch (from) {
    case StateFrom::current:
      return {"current", "boot-v1.json"};
    case StateFrom::previous:
      return {"previous",
              "boot-v1.previous.json, since boot-v1.json gives none; the next start stores it as recovered"};
    case StateFrom::firstRun:
      return {"firstRun", "none: there are no state files, so the next start is the first one"};
    case StateFrom::unreadable:
      break;
  }
  return {"unreadable", "none: neither file can be read, and nothing is stored until one is repaired or both are gone"};
}

Wording wordingOf(RootFrom from) {
  switch (from) {
    case RootFrom::argument:
      return {"argument", "as named on the command line"};
    case RootFrom::bootstrap:
      return {"bootstrap", "from the bootstrap"};
    case RootFrom::localData:
      break;
  }
  return {"localData", "the default"};
}

std::string_view kindName(RuntimeKind kind) {
  switch (kind) {
    case kindCandidate:
      return "candidate";
    case kindActive:
      return "active";
    case kindPrevious:
      return "previous";
    case kindSeed:
      break;
  }
  return "seed";
}

}  // namespace launcher_stub::explain
