// The persistent part of the simulated machine: a value that can be copied, compared and put back.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace launcher_stub::sim {

// Win32 error codes that the simulation returns by itself.
namespace win32 {
constexpr std::uint32_t success = 0;
constexpr std::uint32_t fileNotFound = 2;
constexpr std::uint32_t pathNotFound = 3;
constexpr std::uint32_t accessDenied = 5;
constexpr std::uint32_t invalidHandle = 6;
constexpr std::uint32_t notEnoughMemory = 8;
constexpr std::uint32_t sharingViolation = 32;
constexpr std::uint32_t fileExists = 80;
constexpr std::uint32_t diskFull = 112;
constexpr std::uint32_t invalidName = 123;
constexpr std::uint32_t directoryNotEmpty = 145;
constexpr std::uint32_t alreadyExists = 183;
constexpr std::uint32_t notADirectory = 267;
}  // namespace win32

// Until then a change that nothing has made safe may be undone by a power cut; the system then has written it out.
constexpr std::uint64_t settlesAfter = 300'000'000;  // 30 s, in units of 100 ns

enum class NodeKind { file, directory, link };

// Who a directory belongs to.
enum class Owner { user, administrators, otherAccount };

struct Node {
  NodeKind kind = NodeKind::file;
  std::wstring name;                // as it was first written
  std::string contents;             // of a file
  std::wstring linkTarget;          // of a link: the path of a directory, which need not exist
  bool readOnly = false;            // of a file
  std::uint64_t lastWriteTime = 0;  // in units of 100 ns
  int listingRank = 0;              // listings go by rank, then by name, as NTFS orders names
  Owner owner = Owner::user;        // of a directory
  bool listIsPrivate = true;        // of a directory: its access-control list is exactly the private one

  bool operator==(const Node&) const = default;
};

// A change that a power cut may undo.
struct UnsettledChange {
  std::uint64_t time = 0;  // in units of 100 ns
  std::wstring key;
  std::optional<Node> before;  // what the key held; none: nothing
  bool isWrite = false;        // contents on their way: they may also arrive in part

  bool operator==(const UnsettledChange&) const = default;
};

// Files, directories and links to directories, by path. Knows nothing of open handles; errors are Win32 codes.
// Every change goes through one of the functions that take a time, which becomes the last-write time of the changed
// file and, where an entry comes or goes, of its directory.
//
// The disk remembers which changes have not settled, that is, what a power cut may take back: sim_power_cut.h.
class Disk {
 public:
  Disk();  // an empty drive C:

  // What lies at the path; null where nothing does. `find` follows links everywhere, `findItself` not at the end.
  const Node* find(std::wstring_view path) const;
  const Node* findItself(std::wstring_view path) const;

  // The error of opening what is not there: 123 for a name that no file can have, 3 where the directory is missing,
  // else 2.
  std::uint32_t missingError(std::wstring_view path) const;

  // The key of what the path leads to, through links (also one at the end).
  std::wstring resolvedKey(std::wstring_view path) const;

  // The entries of a directory, in the order in which it lists them; empty where there is no directory.
  std::vector<Node> list(std::wstring_view path) const;

  std::uint32_t makeDirectory(std::wstring_view path, std::uint64_t time);  // the parent must exist
  void makeDirectories(std::wstring_view path, std::uint64_t time);         // with all its ancestors
  std::uint32_t makeLink(std::wstring_view path, std::wstring_view target, std::uint64_t time);
  std::uint32_t writeFile(std::wstring_view path, std::string_view contents, std::uint64_t time);
  std::uint32_t removeFile(std::wstring_view path, std::uint64_t time);
  // An empty directory, or a link, which is not followed.
  std::uint32_t removeDirectory(std::wstring_view path, std::uint64_t time);
  // Replaces a file at `target`, writing through: when it returns, the new name is settled, and with it every directory
  // on the way to it; not the contents, unless they were flushed. The moved file keeps its own times.
  std::uint32_t rename(std::wstring_view source, std::wstring_view target, std::uint64_t time);

  void flushFile(std::wstring_view path);  // its contents settle; its name doesn't
  void settle();                           // everything
  const std::vector<UnsettledChange>& unsettled() const { return unsettled_; }

  // For changes of attributes only. Null where nothing is there; the last link is not followed.
  Node* attributes(std::wstring_view path);

  // One line for each entry, sorted; files with their contents.
  std::string describe() const;

  // Every entry by its key, for those who compare or count.
  const std::map<std::wstring, Node>& nodes() const { return nodes_; }

  bool operator==(const Disk&) const = default;

 private:
  friend class PowerCut;
  std::wstring keyOf(std::wstring_view path, bool followLast) const;
  std::uint32_t addNode(std::wstring_view path, Node node, std::uint64_t time);
  void eraseNode(const std::wstring& key, std::uint64_t time);
  bool hasChildren(const std::wstring& key) const;
  void touch(const std::wstring& key, std::uint64_t time);
  void noteChange(const std::wstring& key, std::uint64_t time, bool isWrite = false);

  std::map<std::wstring, Node> nodes_;      // by key, with all links followed
  int links_ = 0;                           // none: a key needs no look at its elements
  std::vector<UnsettledChange> unsettled_;  // in the order in which they were made
};

}  // namespace launcher_stub::sim
