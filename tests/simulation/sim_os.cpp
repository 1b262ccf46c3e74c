#include "tests/simulation/sim_os.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>

#include "tests/simulation/sim_paths.h"

namespace launcher_stub::sim {
namespace {

constexpr std::uint64_t mostCallsAtOneTime = 200'000;  // more is a loop that never sleeps

thread_local SimOs* liveMachine = nullptr;

void abortWith(const std::string& text) {
  std::fputs(text.c_str(), stderr);
  std::fputc('\n', stderr);
  std::abort();
}

SimOs::ProblemHandler problemHandler = abortWith;

}  // namespace

SimOs::SimOs(std::uint64_t startMs) : clock_(startMs) {
  if (liveMachine != nullptr) abortWith("two simulated machines at a time");
  liveMachine = this;
  environment_ = {L"=C:=C:\\App", L"LOCALAPPDATA=C:\\Users\\u\\AppData\\Local", L"Path=C:\\Windows", L"USERNAME=u"};
  makeDirectory(installDirectory_);
  makeDirectory(L"C:\\Users\\u\\AppData\\Local");
  writeBootstrap(bootstrapDocument());
}

SimOs::~SimOs() {
  checkNothingLeftOpen();
  liveMachine = nullptr;
  if (problems_.empty()) return;
  std::string text = "the simulated machine noticed:\n";
  for (const std::string& problem : problems_) text += "  " + problem + "\n";
  problemHandler(text + trace());
}

void SimOs::setProblemHandler(ProblemHandler handler) { problemHandler = handler; }

SimOs* SimOs::currentOrNull() { return liveMachine; }

SimOs& SimOs::current() {
  if (liveMachine == nullptr) abortWith("a platform function was called without a simulated machine (SimOs)");
  return *liveMachine;
}

std::uint32_t SimOs::begin(Call call, std::wstring_view path) {
  if (dead_) {
    if (std::uncaught_exceptions() == 0) throw LauncherKilled{};  // something has swallowed the first one
    return win32::invalidHandle;                                  // unwinding: too late for any effect
  }
  log_.countCall(call);
  callsAtThisTime_ = now() == timeOfLastCall_ ? callsAtThisTime_ + 1 : 0;
  timeOfLastCall_ = now();
  if (callsAtThisTime_ > mostCallsAtOneTime) runAway("calls without end and without sleep");
  for (std::size_t i = 0; i < log_.hooks.size(); ++i) {  // by index: an action may add hooks
    Hook& hook = log_.hooks[i];
    if (hook.done || hook.call != call || !pathMatches(path, hook.pattern) || hook.skip-- > 0) continue;
    hook.done = true;
    hook.action();
  }
  observer_->calls(call, path);
  if (log_.total() >= killAtCall_) killLauncherNow();
  const std::uint32_t error = faultFor(call, path);
  if (error != 0) observer_->fails(call, path, error);
  return error;
}

// The code of the fault that strikes this call, 0 where none does.
std::uint32_t SimOs::faultFor(Call call, std::wstring_view path) {
  if (log_.total() == failedCall_) return failedCallCode_;
  if (log_.total() >= outageFrom_) {
    if (outageUntil_ == forever && outageMs_ < forever - now()) outageUntil_ = now() + outageMs_;
    const bool struck = outage_ == Outage::everything || isOfFiles(call);
    if (struck && now() < outageUntil_ && !errorsOf(call).empty()) return errorsOf(call).front();
  }
  for (Fault& fault : log_.faults) {
    if (fault.strikes(call, path, now())) return fault.code();
  }
  if (isOfFiles(call) && path.size() > longestPath_) return win32::pathNotFound;
  return 0;
}

void SimOs::note(Call call, std::wstring_view path, std::string_view result) { note(callName(call), path, result); }

void SimOs::note(std::string_view name, std::wstring_view path, std::string_view result) {
  if (tracing_) log_.note(name, path, result, now());
}

void SimOs::problem(const std::string& text) {
  problems_.push_back("at " + std::to_string(now()) + " ms: " + text);
  note("PROBLEM", {}, text);
}

std::vector<std::string> SimOs::takeProblems() { return std::exchange(problems_, {}); }

Fault& SimOs::fail(Call call, const std::wstring& pattern, std::uint32_t code) {
  log_.faults.emplace_back(call, pattern, code);
  return log_.faults.back();
}

void SimOs::before(Call call, const std::wstring& pattern, std::function<void()> action, int skip) {
  log_.hooks.push_back({call, pattern, skip, std::move(action)});
}

void SimOs::advance(std::uint64_t ms) {
  const std::uint64_t limit = running_ && !dead_ ? outcome_.startedAt + timeLimit_ : forever;
  const std::uint64_t target = ms > forever - now() ? forever : now() + ms;
  clock_.runUntil(std::min(target, limit));
  if (target > limit) runAway("the run did not end within " + std::to_string(timeLimit_) + " ms");
}

void SimOs::runAway(const std::string& why) {
  problem(why);
  if (running_) endLauncherProcess();
  throw Runaway(why);
}

void SimOs::changePoint() {
  ++changePoints_;
  observer_->mayBeCutOff();
  if (changePoints_ == killAtChangePoint_) killLauncherNow();
}

std::vector<std::string> SimOs::started() const {
  std::vector<std::string> slots;
  for (const Start& start : starts_) slots.push_back(start.slot);
  return slots;
}

std::vector<std::string> SimOs::lines() const {
  std::vector<std::string> texts;
  for (const TimedText& line : lines_) texts.push_back(line.text);
  return texts;
}

int SimOs::lineCount(std::string_view line) const {
  return static_cast<int>(
      std::count_if(lines_.begin(), lines_.end(), [line](const TimedText& one) { return one.text == line; }));
}

int SimOs::replacementsOf(const std::wstring& pattern) const {
  return static_cast<int>(std::count_if(replacements_.begin(), replacements_.end(),
                                        [&](const Replacement& one) { return pathMatches(one.path, pattern); }));
}

void SimOs::recordReplacement(const std::wstring& path, std::string_view contents) {
  replacements_.push_back({now(), path, std::string(contents)});
  if (path.ends_with(L"\\boot-v1.json")) process_.goesOnFromCopy = false;
  observer_->replaced(path, contents);
}

std::string SimOs::trace() const {
  std::string text = "trace (ms):\n" + log_.trace() + "lines:\n";
  for (const TimedText& line : lines_) text += "  " + std::to_string(line.time) + "  " + line.text + "\n";
  return text + "disk:\n" + disk_.describe();
}

void SimOs::clearRecords() {
  for (const std::uint32_t pid : processes_.living()) processes_.find(pid)->start = -1;
  starts_.clear();
  lines_.clear();
  if (process_.box < 0) boxes_.clear();
  replacements_.clear();
  log_.clear();
}

void SimOs::setVariable(const std::wstring& name, const std::wstring& value) {
  removeVariable(name);
  environment_.push_back(name + L"=" + value);
}

void SimOs::removeVariable(const std::wstring& name) {
  const std::wstring key = pathKey(name);
  std::erase_if(environment_,
                [&](const std::wstring& entry) { return pathKey(entry.substr(0, entry.find(L'=', 1))) == key; });
}

}  // namespace launcher_stub::sim
