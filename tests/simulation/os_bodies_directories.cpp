// Listing and removing directories, and the private state root.
#include <algorithm>
#include <string>

#include "os/directory.h"
#include "os/file_status.h"
#include "os/log.h"
#include "os/messages.h"
#include "os/path.h"
#include "os/state_root.h"
#include "tests/simulation/sim_inside.h"
#include "tests/simulation/sim_os.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::os {
namespace {

using sim::Call;
using sim::Node;
using sim::NodeKind;
using sim::SimOs;
namespace win32 = sim::win32;

std::string outcomeText(std::uint32_t error) { return error == 0 ? "ok" : "error " + std::to_string(error); }

DirectoryEntry describeEntry(SimOs& sim, const Node& node, const std::wstring& path) {
  DirectoryEntry entry;
  entry.name = node.name;
  const Node* target = sim.disk().find(path);
  if (target == nullptr) return entry;  // a link that leads nowhere
  entry.isDirectory = target->kind == NodeKind::directory && sim.begin(Call::entryStatus, path) == 0;
  entry.timeKnown = sim.begin(Call::entryTime, path) == 0;
  if (entry.timeKnown) entry.lastWriteTime = target->lastWriteTime;
  return entry;
}

std::uint32_t removeDirectoryItself(SimOs& sim, const std::wstring& path) {
  const Node* node = sim.disk().findItself(path);
  // A link is not the directory that it leads to: what is open behind it does not matter.
  if (node != nullptr && node->kind == NodeKind::directory &&
      sim.openFiles().excludes(sim.disk().resolvedKey(path), {false, false, true})) {
    return win32::sharingViolation;
  }
  return sim.change([&] { return sim.disk().removeDirectory(path, sim.fileTime()); });
}

std::uint32_t removeTreeFile(SimOs& sim, const std::wstring& path) {
  sim.disk().attributes(path)->readOnly = false;  // also of a file that then cannot be removed
  if (sim.openFiles().excludes(sim.disk().resolvedKey(path), {false, false, true})) return win32::sharingViolation;
  return sim.change([&] { return sim.disk().removeFile(path, sim.fileTime()); });
}

// What is open without sharing reading cannot be listed.
std::uint32_t listingError(SimOs& sim, const std::wstring& path) {
  return sim.openFiles().excludes(sim.disk().resolvedKey(path), sim::accessRead) ? win32::sharingViolation : 0;
}

// The first error on the way, which goes on as far as it can.
std::uint32_t removeTree(SimOs& sim, const std::wstring& path) {
  const Node* node = sim.disk().findItself(path);
  if (node == nullptr) return sim.disk().missingError(path);
  std::uint32_t first = node->kind == NodeKind::directory ? listingError(sim, path) : 0;
  if (node->kind == NodeKind::directory && first == 0) {
    for (const Node& entry : sim.disk().list(path)) {
      const std::uint32_t error = removeTree(sim, path + L"\\" + entry.name);
      if (first == 0) first = error;
    }
  }
  std::uint32_t error = sim.begin(Call::removeEntry, path);
  if (error == 0) {
    error = node->kind == NodeKind::file ? removeTreeFile(sim, path) : removeDirectoryItself(sim, path);
  }
  sim.note(Call::removeEntry, path, outcomeText(error));
  return first != 0 ? first : error;
}

// Once per process for each text.
void giveNotice(std::string_view text) {
  std::vector<std::string>& given = SimOs::current().process().noticesGiven;
  if (std::find(given.begin(), given.end(), text) != given.end()) return;
  given.emplace_back(text);
  logLine(text);
}

// False: another account's directory, which is the one failure with a text, or the owner could not be settled.
bool ownerIsAcceptable(SimOs& sim, const std::wstring& path, std::string* error) {
  Node& node = *sim.disk().attributes(sim.disk().resolvedKey(path));
  if (node.owner == sim::Owner::user) return true;
  const bool ofAdministrators = node.owner == sim::Owner::administrators;
  if (ofAdministrators && sim.begin(Call::checkMembership, path) != 0) return false;
  if (!ofAdministrators || !sim.memberOfAdministrators()) {
    if (error != nullptr) *error = messages::rootBelongsToAnother;
    return false;
  }
  if (sim.begin(Call::takeOwnership, path) != 0) return false;
  node.owner = sim::Owner::user;
  return true;
}

bool createOneDirectory(SimOs& sim, const std::wstring& path, std::string* error) {
  std::uint32_t failure = sim.begin(Call::createDirectory, path);
  if (failure == 0) failure = sim.change([&] { return sim.disk().makeDirectory(path, sim.fileTime()); });
  sim.note(Call::createDirectory, path, outcomeText(failure));
  if (failure == win32::alreadyExists) return verifyPrivateDirectory(path, error);
  if (failure != 0) return false;
  if (!sim.volumeKeepsLists()) giveNotice(messages::listNotPersisted);
  return true;
}

}  // namespace

std::vector<DirectoryEntry> listDirectory(const std::wstring& path) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  std::uint32_t error = sim.begin(Call::listDirectory, path);
  if (error == 0) error = listingError(sim, path);
  std::vector<DirectoryEntry> entries;
  if (error == 0) {
    for (const Node& node : sim.disk().list(path)) {
      const std::wstring entryPath = path + L"\\" + node.name;
      if (sim.begin(Call::nextEntry, entryPath) != 0) break;
      entries.push_back(describeEntry(sim, node, entryPath));
    }
  }
  sim.note(Call::listDirectory, path, std::to_string(entries.size()) + " entries");
  return entries;
}

std::uint32_t removeEmptyDirectory(const std::wstring& path) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  std::uint32_t error = sim.begin(Call::removeEmptyDirectory, path);
  if (error == 0) error = removeDirectoryItself(sim, path);
  sim.note(Call::removeEmptyDirectory, path, outcomeText(error));
  return error;
}

std::uint32_t removeDirectoryTree(const std::wstring& path) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  std::uint32_t error = sim.begin(Call::removeDirectoryTree, path);
  const Node* node = sim.disk().findItself(path);
  if (error == 0 && node != nullptr && node->kind == NodeKind::file) error = win32::notADirectory;
  if (error == 0) error = removeTree(sim, path);
  sim.note(Call::removeDirectoryTree, path, outcomeText(error));
  return error;
}

std::string systemMessage(std::uint32_t code) {
  switch (code) {
    case win32::fileNotFound:
      return "The system cannot find the file specified.";
    case win32::pathNotFound:
      return "The system cannot find the path specified.";
    case win32::accessDenied:
      return "Access is denied.";
    case win32::sharingViolation:
      return "The process cannot access the file because it is being used by another process.";
    case win32::directoryNotEmpty:
      return "The directory is not empty.";
    case win32::notADirectory:
      return "The directory name is invalid.";
    default:
      return std::string(messages::codeWithoutText) + std::to_string(code);
  }
}

bool createPrivateDirectory(const std::wstring& path, std::string* error) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  if (sim.begin(Call::createPrivateDirectory, path) != 0) return false;
  switch (pathStatus(path)) {
    case PathStatus::directory:
      return verifyPrivateDirectory(path, error);
    case PathStatus::other:
    case PathStatus::unknown:
      return false;
    case PathStatus::missing:
      break;
  }
  const std::wstring parent = parentPath(path);
  if (!parent.empty() && pathIsMissing(parent) && !createPrivateDirectory(parent, error)) return false;
  return createOneDirectory(sim, path, error);
}

bool verifyPrivateDirectory(const std::wstring& path, std::string* error) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  std::uint32_t failure = sim.begin(Call::verifyDirectory, path);
  if (failure == 0) failure = sim.begin(Call::readVolume, path);
  if (failure != 0) return false;
  if (!sim.volumeKeepsLists()) {
    giveNotice(messages::volumeKeepsNoLists);
    return true;
  }
  if (sim.begin(Call::readSecurity, path) != 0 || !sim.exists(path)) return false;
  if (!ownerIsAcceptable(sim, path, error)) return false;
  Node& node = *sim.disk().attributes(sim.disk().resolvedKey(path));
  if (node.listIsPrivate) return true;
  if (sim.begin(Call::resetList, path) != 0) return false;
  node.listIsPrivate = true;
  giveNotice(messages::listReset);
  return true;
}

void resetStateRootForTests() { SimOs::current().process().noticesGiven.clear(); }

}  // namespace launcher_stub::os
