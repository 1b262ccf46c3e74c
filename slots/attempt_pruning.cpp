#include "slots/attempt_pruning.h"

#include <cstdint>
#include <vector>

#include "os/directory.h"
#include "os/log.h"
#include "os/path.h"
#include "slots/file_names.h"
#include "slots/messages.h"

namespace launcher_stub {
namespace {

// The newest directory besides the current attempt's; of several equally new ones the first. Empty when there is none.
std::wstring newestOther(const std::vector<os::DirectoryEntry>& entries, const std::wstring& currentAttemptName) {
  const os::DirectoryEntry* newest = nullptr;
  for (const os::DirectoryEntry& entry : entries) {
    if (!entry.isDirectory || !entry.timeKnown || entry.name == currentAttemptName) continue;
    if (newest == nullptr || entry.lastWriteTime > newest->lastWriteTime) newest = &entry;
  }
  return newest != nullptr ? newest->name : std::wstring();
}

void removeAttempt(const std::wstring& path) {
  std::uint32_t error = os::removeEmptyDirectory(path);
  if (error == os::errorDirectoryNotEmpty) error = os::removeDirectoryTree(path);
  if (error != 0) os::logLine(std::string(messages::cannotPrune) + os::systemMessage(error));
}

}  // namespace

void pruneAttempts(const std::wstring& stateRoot, const std::wstring& currentAttemptName) {
  const std::wstring directory = os::joinPath(stateRoot, files::attempts);
  const std::wstring kept = newestOther(os::listDirectory(directory), currentAttemptName);
  // Listed anew: what came or went since is judged as it is now. The whole list is there before the first removal,
  // which could otherwise make the file system skip entries.
  for (const os::DirectoryEntry& entry : os::listDirectory(directory)) {
    if (!entry.isDirectory || entry.name == currentAttemptName || entry.name == kept) continue;
    removeAttempt(os::joinPath(directory, entry.name));
  }
}

}  // namespace launcher_stub
