#include "tests/call_faults/watch.h"

#include <atomic>
#include <stdexcept>
#include <utility>

#include "tests/call_faults/text.h"

namespace call_faults {
namespace {

// Far from zero, as on a machine that has been up for days.
constexpr std::uint64_t firstMoment = 1'000'000'000;
// The longest launch that has an end waits for three candidates of 120 s and gives up several transitions of 30 s.
constexpr std::uint64_t longestLaunchMs = 30 * 60'000;
constexpr std::uint64_t mostCalls = 300'000;

std::atomic<DWORD> watchedThread = 0;  // 0: none
bool insideReplacedCall = false;       // only the watched thread looks at it

bool isTemporary(const std::wstring& path) { return path.find(L".tmp-") != std::wstring::npos; }

}  // namespace

Watch& watch() {
  static Watch one;
  return one;
}

std::string describe(const Fault& fault) {
  static constexpr const char* ways[] = {"", " although done", " with half the bytes", " with no byte", " cut off"};
  return std::string(fault.function) + " call " + std::to_string(fault.index) + " code " +
         std::to_string(fault.refusal.code) + ways[static_cast<int>(fault.refusal.way)] +
         (fault.lasting ? ", and all that follow" : "");
}

void Watch::begin(const Circumstances& circumstances, const std::optional<Fault>& fault, std::uint32_t launch) {
  circumstances_ = circumstances;
  fault_ = fault;
  refused_.clear();
  counts_.clear();
  places_.clear();
  calls_ = 0;
  epoch_ = 0;
  now_ = startedAt_ = firstMoment;
  firstRename_ = 0;
  files_.clear();
  closedFiles_.clear();
  findings_.clear();
  said_.clear();
  boxes_.clear();
  boxThread_ = nullptr;
  launch_ = launch;
  drawn_ = 0;
  watchedThread = GetCurrentThreadId();
}

void Watch::end() { watchedThread = 0; }

// The first bytes of a draw name launch and draw, so that no two draws of an installation are the same.
std::uint8_t Watch::randomByte() {
  const std::uint32_t draw = drawn_ / 16;
  switch (drawn_++ % 16) {
    case 0:
      return static_cast<std::uint8_t>(launch_);
    case 1:
      return static_cast<std::uint8_t>(draw >> 8);
    case 2:
      return static_cast<std::uint8_t>(draw);
    default:
      return 0x5a;
  }
}

bool isWatching() { return watchedThread == GetCurrentThreadId() && !insideReplacedCall; }

InsideReplacedCall::InsideReplacedCall() { insideReplacedCall = true; }
InsideReplacedCall::~InsideReplacedCall() { insideReplacedCall = false; }

const Refusal* Watch::count(std::string_view function, std::wstring_view subject) {
  const int index = ++counts_[function];
  if (++calls_ == mostCalls) throw Endless{};  // once: what it unwinds makes calls, too
  // Idle ticks repeat themselves thousands of times: only what a place is chosen from is kept.
  places_.push_back({function, index, std::wstring(subject), epoch_, !runtimes_.runs().empty()});
  if (!fault_ || fault_->function != function) return nullptr;
  if (index != fault_->index && !(fault_->lasting && index > fault_->index)) return nullptr;
  refused_.emplace_back(subject);
  return &fault_->refusal;
}

void Watch::acquired(Resource kind, const void* what, std::string_view function, std::wstring_view name) {
  held_[{kind, what}] = {std::string(function), std::wstring(name)};
}

void Watch::released(Resource kind, const void* what, std::string_view function, bool byLauncher) {
  if (held_.erase({kind, what}) == 0 && byLauncher) {
    wrong(std::string(function) + " gives back what is not held: a second time?");
  }
}

std::wstring Watch::origin(Resource kind, const void* what) const {
  const auto found = held_.find({kind, what});
  if (found == held_.end()) return {};
  return found->second.name.empty() ? toWide(found->second.function) : found->second.name;
}

void Watch::staysForGood(HANDLE job) {
  const auto found = held_.find({Resource::handle, job});
  if (found == held_.end()) return wrong("the launcher is put into a job that it does not hold");
  found->second.forGood = true;
}

void Watch::boxIsShownBy(HANDLE thread) {
  if (boxThread_ != nullptr) wrong("a second thread is started");
  boxThread_ = thread;
}

void Watch::boxIsDone() {
  DWORD flags = 0;
  if (boxThread_ != nullptr && GetHandleInformation(boxThread_, &flags)) wrong("the thread of the box is left over");
}

void Watch::giveBackTheRest() {
  int forGood = 0;
  for (const auto& [key, held] : held_) {
    if (held.forGood) {
      ++forGood;
    } else {
      wrong("left over: what " + held.function + " gave " + toUtf8(held.name));
    }
    if (key.first == Resource::handle) CloseHandle(const_cast<void*>(key.second));
  }
  if (forGood > 1) wrong("the launcher holds " + std::to_string(forGood) + " jobs of its own");
  held_.clear();
}

void Watch::hold(const std::wstring& path, std::uint64_t ms) {
  letGo();
  heldFile_ = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0, nullptr);
  if (heldFile_ == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot hold " + toUtf8(path));
  heldUntil_ = firstMoment + ms;
}

void Watch::letGo() {
  if (heldFile_ != nullptr) CloseHandle(heldFile_);
  heldFile_ = nullptr;
}

void Watch::pass(std::uint64_t ms) {
  now_ += ms;
  if (now_ >= heldUntil_) letGo();
  runtimes_.timePassed(now_);
}

void Watch::sleep(std::uint64_t ms) {
  // Between two tries of one rename it is; between two transitions it never is.
  if (ms >= 250 && lockIsHeld()) wrong("state.lock is held while the launcher sleeps");
  pass(ms);
  if (now_ - startedAt_ > longestLaunchMs) throw Endless{};
}

void Watch::fileOpened(HANDLE file, const std::wstring& path, DWORD disposition) {
  files_[file] = {path, disposition == CREATE_NEW, false, false};
}

void Watch::fileWritten(HANDLE file, std::string_view bytes) {
  const auto found = files_.find(file);
  if (found != files_.end() && !bytes.empty()) found->second.flushed = false;
}

void Watch::fileFlushed(HANDLE file) {
  const auto found = files_.find(file);
  if (found != files_.end()) found->second.flushed = true;
}

void Watch::fileClosed(HANDLE file, bool told) {
  const auto found = files_.find(file);
  if (found == files_.end()) return;
  found->second.closed = told;
  closedFiles_[found->second.path] = found->second;
  files_.erase(found);
}

bool Watch::lockIsHeld() const {
  for (const auto& [file, open] : files_) {
    if (open.path.ends_with(L"\\state.lock")) return true;
  }
  return false;
}

void Watch::fileMoved(const std::wstring& from, const std::wstring& to) {
  const auto found = closedFiles_.find(from);
  const bool onDisk = found != closedFiles_.end() && found->second.flushed && found->second.closed;
  if (!isTemporary(from) || !onDisk) wrong("renamed before its bytes were on the disk: " + toUtf8(from));
  if (!lockIsHeld()) wrong("written without state.lock: " + toUtf8(to));
}

bool Watch::renameIsRefused() {
  if (circumstances_.renamesRefusedMs == 0) return false;
  if (firstRename_ == 0) firstRename_ = now_;
  return now_ < firstRename_ + circumstances_.renamesRefusedMs;
}

void Watch::boxed(const std::wstring& text, const std::wstring& title) {
  boxes_.push_back(toUtf8(text));
  if (title != L"Plinket launcher") wrong("a box with the title " + toUtf8(title));
}

}  // namespace call_faults
