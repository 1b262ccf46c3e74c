#include "conformance/launch.h"

#include <algorithm>

namespace conformance {
namespace {

using launcher_stub::AttemptRecord;

constexpr std::uint32_t lookPauseMs = 15;
constexpr std::uint32_t longLookPauseMs = 100;  // for what takes long anyhow
constexpr std::uint64_t longWaitBeginsMs = 3000;
constexpr std::uint32_t heldForGoodMs = 1000;  // a marker that cannot be opened for so long is held
constexpr std::uint32_t askAgainMs = 1000;
constexpr std::uint32_t windowComesMs = 3000;  // a program may be ready before its window is there

bool isNamed(const std::wstring& path, const std::wstring& name) {
  return path.size() > name.size() && path.ends_with(name) && path[path.size() - name.size() - 1] == L'\\';
}

void replaceAll(std::wstring& text, const std::wstring& word, const std::wstring& value) {
  for (std::size_t at = text.find(word); at != std::wstring::npos; at = text.find(word, at + value.size())) {
    text.replace(at, word.size(), value);
  }
}

}  // namespace

Launch::Launch(const Installation& installation, const Options& options)
    : installation_(installation), options_(options) {}

Launch::~Launch() { tree_.end(); }

bool Launch::start(std::string& problem) {
  begin_ = milliseconds();
  return tree_.start(installation_.launcher(), options_.arguments, installation_.directory(), installation_.errorFile(),
                     problem);
}

bool Launch::waitUntil(const std::function<bool()>& happened, std::uint64_t limit) {
  for (const std::uint64_t start = milliseconds();;) {
    look();
    if (happened()) return true;
    const std::uint64_t waited = milliseconds() - start;
    if (waited >= limit) return false;
    pause(waited < longWaitBeginsMs ? lookPauseMs : longLookPauseMs);
  }
}

void Launch::look() {
  tree_.look();
  lookAtAttempts();
}

void Launch::lookAtAttempts() {
  const std::wstring directory = installation_.stateRoot() + L"\\attempts";
  for (const std::wstring& name : namesIn(directory)) {
    const std::string nonce = toUtf8(name);
    if (std::any_of(attempts_.begin(), attempts_.end(),
                    [&](const AttemptRecord& known) { return known.nonce == nonce; }))
      continue;
    std::string document;
    std::string error;
    AttemptRecord record;
    if (readFile(inDirectory(inDirectory(directory, name), L"boot-v1.json"), document) == 0 &&
        readAttemptRecord(document, record, error)) {
      attempts_.push_back(record);
    }
  }
}

const WatchedProcess* Launch::runtime() const {
  for (const WatchedProcess& process : tree_.processes()) {
    if (process.parent() == launcher().id() && isNamed(process.image(), L"entry-v1.exe")) return &process;
  }
  return nullptr;
}

std::vector<const WatchedProcess*> Launch::others() const {
  std::vector<const WatchedProcess*> found;
  for (const WatchedProcess& process : tree_.processes()) {
    if (&process != &launcher() && &process != runtime()) found.push_back(&process);
  }
  return found;
}

std::wstring Launch::attemptDirectory() const {
  return attempts_.empty() ? std::wstring() : installation_.attemptDirectory(attempts_.front().nonce);
}

Marker Launch::marker(const std::wstring& name) const {
  if (attempts_.empty()) return {};
  const std::wstring path = attemptDirectory() + L"\\" + name;
  if (!isPresent(path)) return {};
  std::string document;
  std::uint32_t code = readFile(path, document);
  for (const std::uint64_t start = milliseconds(); code != 0 && milliseconds() - start < heldForGoodMs;) {
    pause(lookPauseMs);
    code = readFile(path, document);
  }
  const std::string what = toUtf8(name);
  if (code != 0) {
    return {Marker::Form::unreadable, what + " cannot be opened by the launcher: Win32 error " + std::to_string(code)};
  }
  AttemptRecord record;
  std::string error;
  if (!readAttemptRecord(document, record, error)) {
    return {Marker::Form::malformed, what + " is not a whole document: " + error};
  }
  const AttemptRecord& attempt = attempts_.front();
  if (record.slot != attempt.slot) {
    return {Marker::Form::foreign, what + " names the slot " + record.slot + ", this one is " + attempt.slot};
  }
  if (record.nonce != attempt.nonce) {
    return {Marker::Form::foreign, what + " names the nonce " + record.nonce + ", this start's is " + attempt.nonce};
  }
  return {Marker::Form::right, {}};
}

bool Launch::isOver() { return launcher().hasEnded() || attempts_.size() > 1 || printed("No runnable runtime"); }

std::vector<std::string> Launch::lines() const {
  std::string text;
  std::vector<std::string> found;
  if (readFile(installation_.errorFile(), text) != 0) return found;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    found.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return found;
}

bool Launch::printed(std::string_view start) const {
  const std::vector<std::string> all = lines();
  return std::any_of(all.begin(), all.end(), [&](const std::string& line) { return line.starts_with(start); });
}

std::wstring Launch::closeCommand() const {
  std::wstring command = options_.closeCommand;
  const std::string slot = attempts_.empty() ? "seed" : attempts_.front().slot;
  replaceAll(command, L"{pid}", std::to_wstring(runtime()->id()));
  replaceAll(command, L"{slot}", installation_.slotDirectory(slot));
  replaceAll(command, L"{attempt}", attemptDirectory());
  replaceAll(command, L"{state}", installation_.stateRoot());
  replaceAll(command, L"{install}", installation_.directory());
  return command;
}

// False: there is nothing that could be asked.
bool Launch::askRuntime() {
  if (!options_.closeCommand.empty()) return runCommand(closeCommand(), options_.closeWithin);
  windowsAsked_ = std::max(windowsAsked_, closeWindows(runtime()->id()));
  return windowsAsked_ > 0;
}

Ending Launch::endRuntime() {
  if (runtime() == nullptr) return Ending::runs;
  if (runtime()->hasEnded()) return Ending::byItself;
  const auto hasEnded = [&] { return runtime()->hasEnded(); };
  const bool byCommand = !options_.closeCommand.empty();
  const std::uint64_t start = milliseconds();
  for (std::uint64_t spent = 0; spent < options_.closeWithin; spent = milliseconds() - start) {
    const bool asked = askRuntime();
    if (!asked && (byCommand || spent >= windowComesMs)) break;  // there is nothing that could be asked
    const std::uint64_t rest = options_.closeWithin - spent;
    // A window that comes up meanwhile is asked too; a command is run once.
    if (waitUntil(hasEnded, byCommand ? rest : std::min<std::uint64_t>(rest, asked ? askAgainMs : longLookPauseMs))) {
      return asked ? Ending::asked : Ending::byItself;
    }
    if (byCommand) break;
  }
  if (runtime()->hasEnded()) return Ending::asked;
  runtime()->terminate(terminatedCode);
  (void)waitUntil(hasEnded, options_.closeWithin);  // the exit code tells
  return Ending::terminated;
}

}  // namespace conformance
