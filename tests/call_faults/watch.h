// What is seen of one launch, and what is done to it: the calls it makes of the system, which of them is refused, what
// it holds, what it says, the time that passes for it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tests/call_faults/runtimes.h"

namespace call_faults {

// How a call fails.
enum class Way {
  refused,         // nothing is done, and the call says so
  doneAndRefused,  // done all the same: what has been given back is gone, whatever the answer is
  partly,          // success, with half of the bytes
  nothing,         // success, without a byte
  cutOff,          // success, with as much as the buffer takes
};

struct Refusal {
  DWORD code = 0;
  Way way = Way::refused;
};

struct Fault {
  std::string_view function;
  int index = 0;  // of the launch's calls of this function, from 1
  Refusal refusal;
  bool lasting = false;  // this call and all that follow
};

std::string describe(const Fault& fault);

// What the system is like during a launch, besides the one fault.
struct Circumstances {
  std::uint64_t renamesRefusedMs = 0;  // from the first rename on: the target is held by a scanner
  std::uint64_t stateLockHeldMs = 0;   // from the start on, by another process
  std::uint64_t leaseHeldMs = 0;       // by another launcher
  bool ownedByAdministrators = false;  // every directory that is looked at
  bool userIsAdministrator = false;
  bool volumeKeepsNoLists = false;
  bool listsKept = false;  // every directory that is looked at has the private list, as on NTFS
  bool jobsRefuseChildren = false;
  bool treeDoesNotEnd = false;  // a process of the job outlives every attempt to end it
};

// One call that the launcher made.
struct Place {
  std::string_view function;
  int index = 0;
  std::wstring subject;      // what it was about: a path, where there is one
  std::uint64_t epoch = 0;   // changes of the outside world before it
  bool supervising = false;  // a runtime has been started by then
};

enum class Resource { handle, search, identifier, localMemory, environment, attributeList };

class Watch {
 public:
  // A launch that does not end by itself is thrown out of it with this.
  struct Endless {};

  // `launch`: counts the launches of one installation; each draws other random digits, the same in every run.
  void begin(const Circumstances& circumstances, const std::optional<Fault>& fault, std::uint32_t launch);
  void end();
  // Counts a call. The refusal that it is to meet, if any.
  const Refusal* count(std::string_view function, std::wstring_view subject);
  void changed() { ++epoch_; }
  std::uint8_t randomByte();

  void acquired(Resource kind, const void* what, std::string_view function, std::wstring_view name = {});
  // `byLauncher`: the run-time library gives back what it got itself, which nobody has watched.
  void released(Resource kind, const void* what, std::string_view function, bool byLauncher);
  // Where it came from; empty where it is not held.
  std::wstring origin(Resource kind, const void* what) const;
  // The job that contains the launcher itself: the one thing that it never gives back.
  void staysForGood(HANDLE job);
  // The thread of the box: its handle is kept for as long as the process lives, which waits for it in the end.
  void boxIsShownBy(HANDLE thread);
  void boxIsDone();
  // Closes the launcher's own job and what was found left over.
  void giveBackTheRest();

  // Another process opens this file for itself, for so long from the launch's start on.
  void hold(const std::wstring& path, std::uint64_t ms);
  void letGo();

  std::uint64_t now() const { return now_; }  // ms
  void pass(std::uint64_t ms);
  void sleep(std::uint64_t ms);

  void fileOpened(HANDLE file, const std::wstring& path, DWORD disposition);
  void fileWritten(HANDLE file, std::string_view bytes);
  void fileFlushed(HANDLE file);
  void fileClosed(HANDLE file, bool told);
  void fileMoved(const std::wstring& from, const std::wstring& to);
  bool renameIsRefused();

  void wrong(const std::string& what) { findings_.push_back(what); }
  void said(std::string_view bytes) { said_ += bytes; }
  void boxed(const std::wstring& text, const std::wstring& title);

  const std::wstring& launcherPath() const { return launcherPath_; }
  void setLauncherPath(const std::wstring& path) { launcherPath_ = path; }

  const Circumstances& circumstances() const { return circumstances_; }
  Runtimes& runtimes() { return runtimes_; }
  const std::vector<Place>& places() const { return places_; }
  const std::vector<std::string>& findings() const { return findings_; }
  const std::string& text() const { return said_; }
  const std::vector<std::string>& boxes() const { return boxes_; }
  bool faultWasMet() const { return !refused_.empty(); }
  const std::vector<std::wstring>& refused() const { return refused_; }
  std::uint64_t calls() const { return calls_; }

 private:
  bool lockIsHeld() const;

  struct Held {
    std::string function;
    std::wstring name;
    bool forGood = false;
  };
  struct File {
    std::wstring path;
    bool isFresh = false;  // created by the launcher itself
    bool flushed = false;  // everything that was written
    bool closed = false;
  };

  Circumstances circumstances_;
  std::optional<Fault> fault_;
  std::vector<std::wstring> refused_;  // the subject of each call that met the fault
  std::map<std::string_view, int> counts_;
  std::vector<Place> places_;
  std::uint64_t calls_ = 0;
  std::uint64_t epoch_ = 0;
  std::uint64_t now_ = 0;
  std::uint64_t startedAt_ = 0;
  std::uint64_t firstRename_ = 0;
  std::map<std::pair<Resource, const void*>, Held> held_;
  std::map<const void*, File> files_;         // open ones
  std::map<std::wstring, File> closedFiles_;  // by path
  HANDLE heldFile_ = nullptr;                 // by "another process"
  std::uint64_t heldUntil_ = 0;
  std::vector<std::string> findings_;
  std::string said_;
  std::wstring launcherPath_;
  std::uint32_t launch_ = 0;
  std::uint32_t drawn_ = 0;  // random bytes
  std::vector<std::string> boxes_;
  HANDLE boxThread_ = nullptr;
  Runtimes runtimes_;
};

Watch& watch();

// While one of these lives, nothing is watched.
class InsideReplacedCall {
 public:
  InsideReplacedCall();
  InsideReplacedCall(const InsideReplacedCall&) = delete;
  InsideReplacedCall& operator=(const InsideReplacedCall&) = delete;
  ~InsideReplacedCall();
};

// True on the launcher's thread during a launch, outside of the replaced calls themselves: what those call is nobody's
// business. Every thread of the process comes by here, the run-time library's own waits included, so it looks at
// nothing that would have to be waited for.
bool isWatching();

}  // namespace call_faults
