// State files, lock files, status.
#include <algorithm>

#include "os/durable_file.h"
#include "os/file_status.h"
#include "os/lock_file.h"
#include "os/random.h"
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

std::uint32_t removeNamedFile(SimOs& sim, const std::wstring& path) {
  if (sim.openFiles().excludes(sim.disk().resolvedKey(path), {false, false, true})) return win32::sharingViolation;
  const std::wstring key = sim.disk().resolvedKey(path);
  const std::uint32_t error = sim.change([&] { return sim.disk().removeFile(path, sim.fileTime()); });
  if (error == 0) sim.openFiles().detach(key);
  return error;
}

std::wstring temporaryName(SimOs& sim, const std::wstring& target) {
  return target + L".tmp-" + std::to_wstring(sim.process().pid) + L"-" + sim::widen(randomHexDigits());
}

// One step of a replacement: true when no fault strikes it.
bool stepWorks(SimOs& sim, Call step, const std::wstring& path) {
  const std::uint32_t error = sim.begin(step, path);
  if (error != 0) sim.note(step, path, outcomeText(error));
  return error == 0;
}

// Creates the temporary file with its contents on the disk. False: it is not there (any more, as far as possible).
bool writeTemporary(SimOs& sim, const std::wstring& temporary, std::string_view contents) {
  if (!stepWorks(sim, Call::createTemporary, temporary)) return false;
  const std::uint32_t error = sim.change([&]() -> std::uint32_t {
    return sim.disk().findItself(temporary) != nullptr ? win32::fileExists
                                                       : sim.disk().writeFile(temporary, "", sim.fileTime());
  });
  sim.note(Call::createTemporary, temporary, outcomeText(error));
  if (error != 0) return false;
  if (stepWorks(sim, Call::writeTemporary, temporary)) {
    sim.change([&] { return sim.disk().writeFile(temporary, contents, sim.fileTime()); });
    const bool flushed = stepWorks(sim, Call::flushTemporary, temporary);
    if (flushed) sim.change([&] { return sim.disk().flushFile(temporary), true; });
    if (flushed && stepWorks(sim, Call::closeTemporary, temporary)) return true;
  }
  if (stepWorks(sim, Call::deleteTemporary, temporary)) (void)removeNamedFile(sim, temporary);
  return false;
}

// One try of the final rename.
std::uint32_t renameOnce(SimOs& sim, const std::wstring& temporary, const std::wstring& target) {
  std::uint32_t error = sim.begin(Call::rename, target);
  const std::wstring key = sim.disk().resolvedKey(target);
  // A target that is open without delete sharing shows up as "access denied"; a held temporary as a sharing violation.
  if (error == 0 && sim.openFiles().excludes(key, {false, false, true})) error = win32::accessDenied;
  if (error == 0 && sim.openFiles().excludes(sim.disk().resolvedKey(temporary), {false, false, true})) {
    error = win32::sharingViolation;
  }
  if (error == 0) error = sim.change([&] { return sim.disk().rename(temporary, target, sim.fileTime()); });
  if (error == 0) sim.openFiles().detach(key);
  sim.note(Call::rename, target, outcomeText(error));
  return error;
}

bool renameWithRetry(SimOs& sim, const std::wstring& temporary, const std::wstring& target) {
  const std::uint64_t deadline = sim.now() + replaceWaitLimitMs;
  for (;;) {
    const std::uint32_t error = renameOnce(sim, temporary, target);
    if (error == 0) return true;
    const bool mayPass = error == win32::sharingViolation || error == win32::accessDenied;
    if (!mayPass || sim.now() >= deadline) return false;
    sim.advance(retryPauseMs);
  }
}

// One try to open a lock file. The open file's number, or 0 with the error.
int tryLock(SimOs& sim, const std::wstring& path, std::uint32_t& error) {
  error = sim.begin(Call::lockTry, path);
  const Node* node = sim.disk().find(path);
  if (error == 0 && node != nullptr && (node->kind != NodeKind::file || node->readOnly)) error = win32::accessDenied;
  if (error == 0 && node == nullptr) error = sim.change([&] { return sim.disk().writeFile(path, "", sim.fileTime()); });
  int file = 0;
  if (error == 0) {
    file = sim.openFiles().open(sim.disk().resolvedKey(path), sim::accessReadWrite, sim::accessNone, "launcher");
    if (file == 0) error = win32::sharingViolation;
  }
  sim.note(Call::lockTry, path, outcomeText(error));
  return file;
}

}  // namespace

PathStatus pathStatus(const std::wstring& path) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  std::uint32_t error = sim.begin(Call::status, path);
  PathStatus status = PathStatus::missing;
  const Node* node = sim.disk().find(path);
  if (error == 0 && node == nullptr) error = sim.disk().missingError(path);
  if (error != 0) {
    const bool saysMissing = error == win32::fileNotFound || error == win32::pathNotFound;
    status = saysMissing ? PathStatus::missing : PathStatus::unknown;
  } else if (node != nullptr) {
    status = node->kind == NodeKind::directory ? PathStatus::directory : PathStatus::other;
  }
  static constexpr std::string_view names[] = {"missing", "directory", "other", "unknown"};
  sim.note(Call::status, path, names[static_cast<int>(status)]);
  return status;
}

bool pathIsPresent(const std::wstring& path) {
  const PathStatus status = pathStatus(path);
  return status == PathStatus::directory || status == PathStatus::other;
}

bool pathIsMissing(const std::wstring& path) { return pathStatus(path) == PathStatus::missing; }

bool readStateFile(const std::wstring& path, std::string& contents) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  std::uint32_t error = sim.begin(Call::readFile, path);
  const Node* node = sim.disk().find(path);
  if (error == 0 && node == nullptr) error = sim.disk().missingError(path);
  if (error == 0 && node->kind != NodeKind::file) error = win32::accessDenied;
  if (error == 0 && sim.openFiles().excludes(sim.disk().resolvedKey(path), sim::accessRead)) {
    error = win32::sharingViolation;
  }
  const bool whole = error == 0 && node->contents.size() <= largestDurableFile;
  sim.note(Call::readFile, path, error == 0 && !whole ? "too large" : outcomeText(error));
  if (whole) contents = node->contents;
  if (whole && path.ends_with(L"\\boot-v1.previous.json")) sim.process().goesOnFromCopy = true;
  sim.observer().reads(path, whole);
  return whole;
}

bool replaceFileDurably(const std::wstring& target, std::string_view contents) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  const std::uint32_t error = sim.begin(Call::replace, target);
  sim.beginReplacement(target, contents);
  bool replaced = false;
  if (error == 0 && contents.size() <= largestDurableFile) {
    const std::wstring temporary = temporaryName(sim, target);
    if (writeTemporary(sim, temporary, contents)) {
      replaced = renameWithRetry(sim, temporary, target);
      if (!replaced && stepWorks(sim, Call::deleteTemporary, temporary)) (void)removeNamedFile(sim, temporary);
    }
  }
  if (replaced) sim.recordReplacement(target, contents);
  sim.note(Call::replace, target, replaced ? std::string(contents) : "failed");
  return replaced;
}

bool removeFile(const std::wstring& path) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  std::uint32_t error = sim.begin(Call::removeFile, path);
  sim.requireStateLock(path, "deleted");
  if (error == 0) error = removeNamedFile(sim, path);
  sim.note(Call::removeFile, path, outcomeText(error));
  return error == 0 || error == win32::fileNotFound || error == win32::pathNotFound;
}

bool openLockFile(LockFile& lock, const std::wstring& path, LockWait wait) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  lock.busy = false;
  std::uint32_t error = sim.begin(Call::openLock, path);
  const std::uint64_t start = sim.now();
  for (;;) {
    const int file = error == 0 ? tryLock(sim, path, error) : 0;
    if (error == 0) {
      lock.handle = adoptHandle(sim.makeHandle(sim::HandleKind::file, file));
      return true;
    }
    lock.busy = error == win32::sharingViolation;
    if (!lock.busy || wait == LockWait::none || sim.now() - start >= lockWaitLimitMs) return false;
    sim.advance(retryPauseMs);
    error = 0;
  }
}

void closeLockFile(LockFile& lock) { lock.handle.reset(); }

}  // namespace launcher_stub::os
