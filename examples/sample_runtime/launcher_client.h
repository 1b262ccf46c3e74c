// What a runtime needs in order to talk to the launcher that started it. Two files without dependencies beyond the
// C++17 standard library and Windows (link advapi32): copy them into the program. They need no settings of the
// compiler: UNICODE, NOMINMAX and the like may be defined or not, and any locale may be set.
//
// The usual life: readLaunch; keepLeaseFromChildren before anything is started; writeReady when the program has
// started up; writeHealthy when it is satisfied with itself, which a candidate must do within 120 s; for an update
// stageSlot, then leavePendingRequest, then askForRestart, then a normal end.
//
// Failure. All functions return false and leave no half-written file under a final name. Then GetLastError has the
// cause, and `failure`, if one was given, says what was being done. A call that failed may be repeated.
//
// Time. Files that somebody holds for a moment (a virus scanner, a backup program, the launcher) are tried again every
// 50 ms, for up to patienceMs each. So a call takes milliseconds as a rule and 5 s at worst for each file that it
// needs; stageSlot takes as long as copying does. Those of an update are better called beside the thread that draws
// windows.
//
// Threads. There is no hidden state: any thread may call, also several at once. Two calls that write the same file may
// come in either order.
//
// Exceptions: std::bad_alloc when memory runs out, nothing else.
//
// Paths may be of any length, also in a program without the manifest entry for long paths.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace launcher_client {

constexpr std::uint32_t patienceMs = 5000;  // how long a file that is held by somebody else is waited for

// What went wrong, for a log.
struct Failure {
  std::string action;      // "cannot write the ready marker"; plain English
  std::uint32_t code = 0;  // the system's error code, as GetLastError returned it

  std::string text() const;  // "cannot write the ready marker: Win32 error 32"
};

// What the launcher told this process.
struct Launch {
  std::wstring stateRoot;
  std::wstring attemptDirectory;  // this start's own; the markers go here
  std::wstring installDirectory;
  void* lease = nullptr;  // the launcher's lock on the state root; leave it open until the process ends
  std::string slot;       // where this process was started from: "seed" or 4 to 64 lowercase hexadecimal digits
  std::string nonce;      // the name of this start: 8 to 64 letters, digits, "-" and "_"
};

// Reads the four variables, and slot and nonce from the attempt's own record. False: `launch` is as it was.
// ERROR_ENVVAR_NOT_FOUND (203): a variable is missing or empty, so this process was started by hand; such a program
// runs without the launcher and calls nothing else of this. ERROR_INVALID_DATA (13): the lease's variable is no decimal
// number, or the record is not one. Any other code: the record could not be read, though it is there.
bool readLaunch(Launch& launch, Failure* failure = nullptr);

// Child processes that inherit handles would get the lease too, and one that outlived the launcher would keep every
// later one from starting. Call this before the first child is started.
bool keepLeaseFromChildren(const Launch& launch, Failure* failure = nullptr);

// "This program has started up": once the launcher has seen that (it looks every 250 ms), an end counts as a normal
// end, whatever its exit code. Not for a candidate: until it is promoted any end without a restart request is a
// failure.
bool writeReady(const Launch& launch, Failure* failure = nullptr);

// "This program works": a candidate becomes the active slot 60 s later, if it still runs then.
bool writeHealthy(const Launch& launch, Failure* failure = nullptr);

// Asks the launcher to start over when this process ends, and to take in a pending request if there is one.
// `requestId`: of the pending request that this restart is for, or empty for a plain restart. The request stands: it
// cannot be taken back, so ask right before the end.
bool askForRestart(const Launch& launch, std::string_view requestId = {}, Failure* failure = nullptr);

// The generation of the state on disk. It changes with every promotion, rejection and request taken in. Read from
// "boot-v1.json" and never from its backup: a launcher that has to fall back on that one counts one up from it, as a
// rule to the number that was lost, and writes "boot-v1.json" again. ERROR_INVALID_DATA: the document is damaged or of
// another version.
bool readCurrentGeneration(const Launch& launch, std::uint64_t& generation, Failure* failure = nullptr);

// Leaves the request to try `candidate` at the next launch; an older request is replaced. It counts only as long as
// the generation stays what it is now, so leave it right before asking for the restart. Waits for the state files to
// be free. `requestId`: 8 to 64 letters, digits, "-" and "_", not used before; see newRequestId.
// ERROR_INVALID_PARAMETER (87): the candidate's name or the id breaks its rule; nothing was written.
bool leavePendingRequest(const Launch& launch, std::string_view candidate, std::string_view requestId,
                         Failure* failure = nullptr);

// 32 random hexadecimal digits; empty when the system has none to give.
std::string newRequestId();

struct SlotFile {
  std::wstring source;  // full path
  std::wstring name;    // in the slot, with its folders: "entry-v1.exe", "data\\texts.bin"
};

// Lays out a slot: copies the files (one must be named "entry-v1.exe"), writes the delivery record and, when all of
// that is on the disk, the marker that makes the slot complete. What an interrupted staging has left in the slot is
// removed first, so staging is simply repeated; links in it are removed and not followed. Copies are writable, also
// those of read-only files. `slot`: 4 to 64 lowercase hexadecimal digits, a name not used before. `deliveryId`: 64
// lowercase hexadecimal digits, or empty to take over the seed's record, if it has one; a slot whose delivery differs
// from the seed's is never started.
// ERROR_ALREADY_EXISTS (183): the slot is complete, and left as it is. ERROR_INVALID_PARAMETER (87): a name breaks its
// rule, leads out of the slot or is one of the launcher's own; nothing was touched. ERROR_SHARING_VIOLATION (32):
// another process stages this slot just now, or holds one of the files.
bool stageSlot(const Launch& launch, std::string_view slot, const std::vector<SlotFile>& files,
               std::string_view deliveryId = {}, Failure* failure = nullptr);

// --- What the above is made of ---

// Replaces a file so that a reader finds the old content or the new, never a part: written under another name, put on
// the disk, then renamed. At most 65536 bytes, the most that the launcher reads.
bool writeWhole(const std::wstring& path, std::string_view content);

// Reads a file of at most 65536 bytes. False: missing, larger, or unreadable; `content` is as it was.
bool readWhole(const std::wstring& path, std::string& content);

// The document that makes up a marker ("ready-v1", "healthy-v1") and, with a request id, a restart request.
std::string slotReference(std::string_view slot, std::string_view nonce, std::string_view requestId = {});

std::string pendingRequest(std::string_view candidate, std::string_view requestId, std::uint64_t generation);

// The text of a member of the document's outermost object: the digits of a number, or what stands between the quotes
// of a string (escapes are left as they are; names, ids and numbers have none). False: no such member, or the document
// ends in the middle of it.
bool findMember(std::string_view document, std::string_view key, std::string& text);

}  // namespace launcher_client
