#include "tests/simulation/sim_calls.h"

#include <algorithm>

#include "tests/simulation/sim_disk.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::sim {
namespace {

constexpr std::size_t longestTrace = 3000;  // lines; the oldest go
constexpr std::size_t repetitionWindow = 8;

}  // namespace

std::string_view callName(Call call) {
  static constexpr std::string_view names[] = {
      "pathStatus",
      "readStateFile",
      "replaceFileDurably",
      "create temporary",
      "write temporary",
      "flush temporary",
      "close temporary",
      "rename",
      "delete temporary",
      "removeFile",
      "openLockFile",
      "open lock",
      "close handle",
      "listDirectory",
      "entry status",
      "entry time",
      "next entry",
      "removeEmptyDirectory",
      "removeDirectoryTree",
      "remove entry",
      "createPrivateDirectory",
      "create directory",
      "verifyPrivateDirectory",
      "read volume",
      "read security",
      "check membership",
      "take ownership",
      "reset list",
      "startChild",
      "duplicate lease",
      "build handle list",
      "read environment",
      "create process",
      "create job",
      "limit job",
      "assign to job",
      "resume thread",
      "pollExit",
      "read exit code",
      "query job",
      "endProcessTree",
      "terminate job",
      "randomHexDigits",
      "sleep",
      "logLine",
      "showError",
      "waitForErrorBox",
      "launcherExecutablePath",
      "readCommandLineArguments",
      "readEnvironmentVariable",
      "containThisProcess",
  };
  static_assert(std::size(names) == static_cast<std::size_t>(Call::count_));
  return names[static_cast<std::size_t>(call)];
}

const std::vector<std::uint32_t>& errorsOf(Call call) {
  using Codes = std::vector<std::uint32_t>;
  static const Codes none;
  static const Codes opening = {win32::sharingViolation, win32::accessDenied, win32::fileNotFound};
  static const Codes writing = {win32::diskFull, win32::accessDenied, win32::notEnoughMemory};
  static const Codes looking = {win32::accessDenied, win32::sharingViolation};
  static const Codes memory = {win32::notEnoughMemory};
  static const Codes renaming = {win32::sharingViolation, win32::accessDenied, win32::diskFull};
  static const Codes starting = {win32::fileNotFound, win32::accessDenied, win32::sharingViolation,
                                 win32::notEnoughMemory};
  switch (call) {
    case Call::readFile:
    case Call::lockTry:
      return opening;
    case Call::createTemporary:
    case Call::writeTemporary:
    case Call::flushTemporary:
    case Call::closeTemporary:
    case Call::createDirectory:
      return writing;
    case Call::rename:
      return renaming;
    case Call::status:
    case Call::removeFile:
    case Call::deleteTemporary:
    case Call::listDirectory:
    case Call::entryStatus:
    case Call::entryTime:
    case Call::nextEntry:
    case Call::removeEmptyDirectory:
    case Call::removeEntry:
    case Call::readVolume:
    case Call::readSecurity:
    case Call::checkMembership:
    case Call::takeOwnership:
    case Call::resetList:
      return looking;
    case Call::createProcess:
      return starting;
    case Call::duplicateLease:
    case Call::buildHandleList:
    case Call::readEnvironment:
    case Call::createJob:
    case Call::limitJob:
    case Call::assignToJob:
    case Call::resumeThread:
    case Call::pollExit:
    case Call::readExitCode:
    case Call::queryJob:
    case Call::terminateJob:
    case Call::random:
    case Call::showError:
    case Call::containProcess:
    case Call::logLine:
    case Call::commandLine:
    case Call::executablePath:
    case Call::environmentVariable:
      return memory;
    case Call::replace:  // what consists of steps fails with them
    case Call::openLock:
    case Call::createPrivateDirectory:
    case Call::verifyDirectory:
    case Call::removeDirectoryTree:
    case Call::startChild:
    case Call::endProcessTree:
    case Call::closeHandle:
    case Call::sleep:
    case Call::waitForErrorBox:
    case Call::count_:
      return none;
  }
  return none;
}

bool Fault::strikes(Call call, std::wstring_view path, std::uint64_t nowMs) {
  if (call != call_ || left_ == 0 || nowMs < from_ || nowMs >= until_ || !pathMatches(path, pattern_)) return false;
  if (skipped_ > 0) return --skipped_, false;
  --left_;
  return true;
}

void CallLog::note(std::string_view name, std::wstring_view path, std::string_view result, std::uint64_t nowMs) {
  const std::size_t window = std::min(repetitionWindow, lines_.size());
  for (std::size_t back = 1; back <= window; ++back) {
    Line& line = lines_[lines_.size() - back];
    if (line.name != name || line.result != result || line.path != path) continue;
    line.last = nowMs;
    ++line.repetitions;
    return;
  }
  lines_.push_back({name, std::wstring(path), std::string(result), nowMs, nowMs});
  if (lines_.size() > longestTrace) {
    lines_.pop_front();
    ++dropped_;
  }
}

std::string CallLog::trace() const {
  std::string text;
  if (dropped_ > 0) text += "  (" + std::to_string(dropped_) + " earlier lines dropped)\n";
  for (const Line& line : lines_) {
    text += "  " + std::to_string(line.first);
    if (line.repetitions > 1) text += ".." + std::to_string(line.last) + " x" + std::to_string(line.repetitions);
    text += "  " + std::string(line.name);
    if (!line.path.empty()) text += " " + printable(line.path);
    if (!line.result.empty()) text += ": " + line.result;
    text += "\n";
  }
  return text;
}

void CallLog::clear() {
  lines_.clear();
  dropped_ = 0;
}

}  // namespace launcher_stub::sim
