// What a runtime needs in order to talk to the launcher that started it. Two files without dependencies beyond the
// standard library and Windows: copy them into the program.
//
// The usual life: readLaunch; keepLeaseFromChildren before anything is started; writeReady when the program has
// started up; writeHealthy when it is satisfied with itself, which a candidate must do within 120 s; for an update
// stageSlot, then leavePendingRequest, then askForRestart, then a normal end.
//
// All functions return false on failure and leave no half-written file under a final name. GetLastError tells why,
// where the cause was a Windows call. One thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace launcher_client {

// What the launcher told this process.
struct Launch {
  std::wstring stateRoot;
  std::wstring attemptDirectory;  // this start's own; the markers go here
  std::wstring installDirectory;
  void* lease = nullptr;  // the launcher's lock on the state root; leave it open until the process ends
  std::string slot;       // where this process was started from: "seed" or 4 to 64 lowercase hexadecimal digits
  std::string nonce;      // the name of this start
};

// Reads the four variables, and slot and nonce from the attempt's own record. False: not started by the launcher.
bool readLaunch(Launch& launch);

// Child processes that inherit handles would get the lease too, and one that outlived the launcher would keep every
// later one from starting. Call this before the first child is started.
bool keepLeaseFromChildren(const Launch& launch);

// "This program has started up": once the launcher has seen that (it looks every 250 ms), an end counts as a normal
// end, whatever its exit code. Not for a candidate: until it is promoted any end without a restart request is a
// failure.
bool writeReady(const Launch& launch);

// "This program works": a candidate becomes the active slot 60 s later, if it still runs then.
bool writeHealthy(const Launch& launch);

// Asks the launcher to start over when this process ends, and to take in a pending request if there is one.
// `requestId`: of the pending request that this restart is for, or empty for a plain restart.
bool askForRestart(const Launch& launch, std::string_view requestId = {});

// The generation of the state on disk. It changes with every promotion, rejection and request taken in.
bool readCurrentGeneration(const Launch& launch, std::uint64_t& generation);

// Leaves the request to try `candidate` at the next launch; an older request is replaced. It counts only as long as
// the generation stays what it is now, so leave it right before asking for the restart. Waits up to 5000 ms for the
// state files to be free. `requestId`: 8 to 64 letters, digits, "-" and "_", not used before; see newRequestId.
bool leavePendingRequest(const Launch& launch, std::string_view candidate, std::string_view requestId);

// 32 random hexadecimal digits; empty when the system has none to give.
std::string newRequestId();

struct SlotFile {
  std::wstring source;  // full path
  std::wstring name;    // in the slot, with its folders: "entry-v1.exe", "data\\texts.bin"
};

// Lays out a slot: copies the files (one must be named "entry-v1.exe"), writes the delivery record and, when all of
// that is on the disk, the marker that makes the slot complete. A slot that is complete already is left as it is:
// false. An interrupted staging is simply repeated. `deliveryId`: 64 lowercase hexadecimal digits, or empty to take
// over the seed's record, if it has one; a slot whose delivery differs from the seed's is never started.
bool stageSlot(const Launch& launch, std::string_view slot, const std::vector<SlotFile>& files,
               std::string_view deliveryId = {});

// --- What the above is made of ---

// Replaces a file so that a reader finds the old content or the new, never a part: written under another name, put on
// the disk, then renamed.
bool writeWhole(const std::wstring& path, std::string_view content);

// Reads a file of at most 65536 bytes. False: missing, larger, or unreadable.
bool readWhole(const std::wstring& path, std::string& content);

// The document that makes up a marker ("ready-v1", "healthy-v1") and, with a request id, a restart request.
std::string slotReference(std::string_view slot, std::string_view nonce, std::string_view requestId = {});

std::string pendingRequest(std::string_view candidate, std::string_view requestId, std::uint64_t generation);

// The text of a member of the document's outermost object: the digits of a number, or what stands between the quotes
// of a string (escapes are left as they are; names, ids and numbers have none). False: no such member.
bool findMember(std::string_view document, std::string_view key, std::string& text);

}  // namespace launcher_client
