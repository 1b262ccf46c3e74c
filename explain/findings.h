// What there is to say about the next start of an installation.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "state/boot_state.h"
#include "state/launcher_model.h"
#include "state/pending_request.h"

namespace launcher_stub::explain {

// How a slot stands in the choice of the next start.
enum class Standing {
  starts,
  comesAfter,       // it could be started, but another one comes before it
  incomplete,       // no completion marker, or no executable
  foreignDelivery,  // complete, but of another delivery than the seed
  rejected,         // on the list of rejected slots
  startsUsedUp,     // started as often as a candidate may: the next start puts it on that list
  replaced,         // the request that would be taken in puts another candidate in its place
  bootstrapNewer,   // no candidate is tried: the bootstrap was written for a newer launcher
  requestNewer,     // no candidate is tried: the request was written for a newer launcher
  seedMissing,      // the seed's executable is not there
  generationAtEnd,  // nothing is started at the last generation
  rootCannotBeHad,  // nothing is started without a state root
};

struct SlotFinding {
  RuntimeKind kind = kindSeed;
  std::string slot;
  Standing standing = Standing::starts;
  bool markerMissing = false;  // of an incomplete slot
  bool entryMissing = false;
};

// A slot that neither the state nor the request names.
struct UnnamedSlot {
  std::string slot;
  bool complete = false;
  bool rejected = false;
};

enum class RequestStanding {
  none,
  takenIn,
  unreadable,        // there, but no request: its document says why
  newer,             // written for a newer launcher: left alone
  bootstrapNewer,    // requests are not looked at: the bootstrap was written for a newer launcher
  firstRun,          // there is no stored state yet to hold it against
  statesUnreadable,  // both state files are unreadable
  generationAtEnd,
  rootCannotBeHad,
  staleGeneration,
  replayed,
  rejected,
  incomplete,
  foreignDelivery,
};

struct RequestFinding {
  RequestStanding standing = RequestStanding::none;
  std::optional<PendingRequest> request;  // where one could be read
  bool namesActive = false;               // its slot is the active one already
  bool removed = false;                   // the next start takes the file away
};

enum class Condition { missing, valid, invalid, unreadable };

struct DocumentFinding {
  std::string name;
  std::wstring path;
  Condition condition = Condition::missing;
  std::string error;  // of an invalid one: the reader's own text
};

enum class MarkerStanding {
  absent,
  counts,
  otherAttempt,  // it carries another slot or nonce
  unreadable,    // it cannot be read as a marker
};

struct MarkerFinding {
  MarkerStanding standing = MarkerStanding::absent;
  std::string error;  // of an unreadable one; empty where the file could not even be read
};

enum class RestartStanding {
  absent,
  asked,
  notOfThis,  // of another attempt, or it names a request that is not known here
  unreadable,
};

struct RestartFinding {
  RestartStanding standing = RestartStanding::absent;
  std::string error;
};

// One directory under "attempts".
struct AttemptFinding {
  std::wstring name;
  DocumentFinding record;  // the rest is known only where it is valid
  std::string slot;
  MarkerFinding ready;
  MarkerFinding healthy;
  RestartFinding restart;
};

enum class StateFrom {
  current,     // "boot-v1.json"
  previous,    // "boot-v1.previous.json"
  firstRun,    // none: neither file exists
  unreadable,  // none, although there is at least one of them
};

enum class RootFrom { argument, bootstrap, localData };

struct ProgramFinding {
  std::uint32_t processId = 0;
  std::wstring path;
};

struct Findings {
  std::wstring installDirectory;
  std::wstring stateRoot;
  RootFrom rootFrom = RootFrom::bootstrap;
  bool rootIsThere = false;
  bool bootstrapUnderstood = false;

  bool startsSomething = false;
  RuntimeKind kind = kindSeed;       // of what would start
  std::string slot;                  // of what would start
  std::uint32_t candidateStart = 0;  // which of its starts it would be, of a candidate
  std::string message;               // where nothing starts: what the launcher would say
  std::vector<SlotFinding> slots;    // in the order in which they are considered
  std::vector<UnnamedSlot> unnamed;

  StateFrom stateFrom = StateFrom::current;
  std::optional<BootState> state;                     // as stored
  std::optional<std::uint64_t> requestGeneration;     // what a request must name to be taken in by the next start
  std::optional<std::uint64_t> generationAfterStart;  // none where the next start stores nothing
  RequestFinding request;

  std::vector<DocumentFinding> documents;
  std::vector<AttemptFinding> attempts;  // the newest first
  bool changedMeanwhile = false;         // the documents were being changed while they were read

  // Programs that run now and whose files lie directly in the install directory. None where that cannot be known.
  std::optional<std::vector<ProgramFinding>> programs;
};

}  // namespace launcher_stub::explain
