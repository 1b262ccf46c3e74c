#include "story.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include "tests/end_to_end/error_window.h"

namespace end_to_end {
namespace {

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

Handle openOrFail(const std::wstring& path, DWORD access, DWORD sharing, DWORD flags) {
  HANDLE handle = CreateFileW(path.c_str(), access, sharing, nullptr, OPEN_EXISTING, flags, nullptr);
  if (handle == INVALID_HANDLE_VALUE) fail("cannot open " + toUtf8(path));
  return Handle(handle);
}

}  // namespace

void figures(const std::string& text) {
  std::printf("figures%s: %s\n", testing::Test::HasFailure() ? " of a failed test" : "", text.c_str());
  std::fflush(stdout);
  testing::Test::RecordProperty("figures", text);
}

void expectBetween(const char* what, std::uint64_t measured, std::uint64_t least, std::uint64_t most) {
  EXPECT_GE(measured, least) << what;
  EXPECT_LE(measured, most) << what;
}

std::optional<std::uint64_t> momentOf(const std::function<bool()>& happened, std::uint64_t limit) {
  constexpr DWORD pauseMs = 100;
  const std::uint64_t start = milliseconds();
  while (!happened()) {
    if (milliseconds() - start >= limit) return std::nullopt;
    Sleep(pauseMs);
  }
  return milliseconds();
}

std::optional<std::uint64_t> momentOfState(const Installation& installation, const std::string& json,
                                           std::uint64_t limit) {
  return momentOf([&] { return installation.state() == json; }, limit);
}

std::uint64_t timeOf(const RuntimeLog& log, const std::string& command) {
  for (const std::string& text : log.all("at")) {
    const std::size_t space = text.find(' ');
    if (space != std::string::npos && text.substr(space + 1) == command) return std::stoull(text.substr(0, space));
  }
  throw std::runtime_error("no line " + command + " in the log:\n" + log.text());
}

std::uint64_t startedAt(const Installation& installation, const std::string& nonce) {
  const std::string record = readFile(installation.inRoot(L"attempts\\" + toWide(nonce) + L"\\boot-v1.json"));
  const std::string key = "\"startedAt\":";
  const std::size_t at = record.find(key);
  if (at == std::string::npos) throw std::runtime_error("no startedAt: " + record);
  return std::stoull(record.substr(at + key.size()));
}

bool leaseIsFree(const Installation& installation) {
  return waitUntil([&] { return openExclusively(installation.inRoot(L"launch.lock")) != nullptr; });
}

void dismissBox(Launcher& launcher, const std::string& text) {
  const ErrorWindow box = waitForWindow(launcher.process());
  EXPECT_EQ(toUtf8(box.title), "Plinket launcher");
  EXPECT_EQ(toUtf8(box.text), text);
  EXPECT_EQ(windowsOf(launcher.process().id()).size(), 1U);
  pressButton(box);
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text.append(text.empty() ? "" : " | ").append(line);
  return text.empty() ? "none" : text;
}

PinnedFile::PinnedFile(const std::wstring& path)
    : handle_(openOrFail(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, 0)) {}

struct CreationCount::Request {
  OVERLAPPED overlapped = {};
  Handle event;
  alignas(DWORD) std::array<unsigned char, 65536> buffer = {};
};

CreationCount::CreationCount(const std::wstring& directory)
    : directory_(
          openOrFail(directory, FILE_LIST_DIRECTORY, shareAll, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED)),
      request_(std::make_unique<Request>()) {
  request_->event.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  request_->overlapped.hEvent = request_->event.get();
  ask();
}

CreationCount::~CreationCount() {
  DWORD count = 0;
  CancelIo(directory_.get());
  GetOverlappedResult(directory_.get(), &request_->overlapped, &count, TRUE);
}

std::size_t CreationCount::beginningWith(const std::wstring& start) {
  collect();
  return static_cast<std::size_t>(
      std::count_if(names_.begin(), names_.end(), [&](const std::wstring& name) { return name.starts_with(start); }));
}

void CreationCount::ask() {
  if (!ReadDirectoryChangesW(directory_.get(), request_->buffer.data(), static_cast<DWORD>(request_->buffer.size()),
                             FALSE, FILE_NOTIFY_CHANGE_FILE_NAME, nullptr, &request_->overlapped, nullptr)) {
    fail("cannot watch a directory");
  }
}

// All that has been reported up to now; the system keeps collecting between two requests.
void CreationCount::collect() {
  constexpr DWORD settleMs = 200;
  while (WaitForSingleObject(request_->event.get(), settleMs) == WAIT_OBJECT_0) {
    DWORD size = 0;
    if (!GetOverlappedResult(directory_.get(), &request_->overlapped, &size, FALSE)) fail("no report");
    for (std::size_t at = 0; at < size;) {
      const auto* change = reinterpret_cast<const FILE_NOTIFY_INFORMATION*>(request_->buffer.data() + at);
      if (change->Action == FILE_ACTION_ADDED) {
        names_.emplace_back(change->FileName, change->FileNameLength / sizeof(wchar_t));
      }
      if (change->NextEntryOffset == 0) break;
      at += change->NextEntryOffset;
    }
    ResetEvent(request_->event.get());
    ask();
  }
}

}  // namespace end_to_end
