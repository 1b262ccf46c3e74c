// The reading half of os/durable_file.h, os/file_status.h, os/directory.h and os/environment.h on this system. There is
// nothing here that writes, locks or starts: a program that asked for it would not link.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>

#include "os/directory.h"
#include "os/durable_file.h"
#include "os/environment.h"
#include "os/file_status.h"
#include "os/path.h"
#include "os/text.h"

namespace launcher_stub::os {
namespace {

// Paths are put together by the rules of Windows; here one separator means both.
std::string hostPath(const std::wstring& path) {
  std::string host = toUtf8(path);
  std::ranges::replace(host, '\\', '/');
  return host;
}

struct FileClosed {
  explicit FileClosed(int number) : file(number) {}
  ~FileClosed() {
    if (file >= 0) ::close(file);
  }
  FileClosed(const FileClosed&) = delete;
  FileClosed& operator=(const FileClosed&) = delete;
  FileClosed(FileClosed&&) = delete;
  FileClosed& operator=(FileClosed&&) = delete;
  int file;
};

struct DirectoryClosed {
  void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};

bool isRegularFile(int file) {
  struct stat status {};
  return ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

// In the units of the other system; only their order means anything here.
std::uint64_t lastWriteTimeOf(const struct stat& status) {
  return static_cast<std::uint64_t>(status.st_mtim.tv_sec) * 10'000'000U +
         static_cast<std::uint64_t>(status.st_mtim.tv_nsec) / 100U;
}

}  // namespace

bool readStateFile(const std::wstring& path, std::string& contents) {
  // Without waiting: a pipe of that name must not hold us up.
  const FileClosed opened(::open(hostPath(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (opened.file < 0 || !isRegularFile(opened.file)) return false;

  std::string buffer(largestDurableFile + 1, '\0');  // one byte more than may be there tells a file that is too large
  std::size_t size = 0;
  while (size < buffer.size()) {
    const ssize_t count = ::read(opened.file, buffer.data() + size, buffer.size() - size);
    if (count < 0) return false;
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
  }
  if (size > largestDurableFile) return false;
  contents.assign(buffer, 0, size);
  return true;
}

PathStatus pathStatus(const std::wstring& path) {
  struct stat status {};
  if (::stat(hostPath(path).c_str(), &status) == 0) {
    return S_ISDIR(status.st_mode) ? PathStatus::directory : PathStatus::other;
  }
  return errno == ENOENT || errno == ENOTDIR ? PathStatus::missing : PathStatus::unknown;
}

bool pathIsPresent(const std::wstring& path) {
  const PathStatus status = pathStatus(path);
  return status == PathStatus::directory || status == PathStatus::other;
}

bool pathIsMissing(const std::wstring& path) { return pathStatus(path) == PathStatus::missing; }

std::vector<DirectoryEntry> listDirectory(const std::wstring& path) {
  std::vector<DirectoryEntry> entries;
  const std::unique_ptr<DIR, DirectoryClosed> directory(::opendir(hostPath(path).c_str()));
  if (directory == nullptr) return entries;
  while (const dirent* found = ::readdir(directory.get())) {
    const std::string name = static_cast<const char*>(found->d_name);
    if (name == "." || name == "..") continue;
    DirectoryEntry entry{toWide(name), false, false, 0};
    struct stat status {};
    if (::stat(hostPath(joinPath(path, entry.name)).c_str(), &status) == 0) {
      entry.isDirectory = S_ISDIR(status.st_mode);
      entry.timeKnown = true;
      entry.lastWriteTime = lastWriteTimeOf(status);
    }
    entries.push_back(std::move(entry));
  }
  return entries;
}

std::wstring readEnvironmentVariable(const std::wstring& name) {
  const char* value = std::getenv(toUtf8(name).c_str());
  return value != nullptr ? toWide(value) : std::wstring();
}

}  // namespace launcher_stub::os
