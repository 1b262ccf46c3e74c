#include "journal.h"

#include <windows.h>

namespace sample_runtime {
namespace {

std::wstring journal;

}  // namespace

void setJournal(const std::wstring& path) { journal = path; }

const std::wstring& journalPath() { return journal; }

void note(std::string_view key, std::string_view text) {
  appendLine(journal, std::string(key) + " " + std::string(text));
}

void appendLine(const std::wstring& path, std::string_view line) {
  HANDLE file = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                            nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return;
  const std::string text = std::string(line) + "\n";
  DWORD written = 0;
  (void)WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);  // nobody left to tell
  CloseHandle(file);
}

std::uint64_t milliseconds() {
  LARGE_INTEGER frequency;
  LARGE_INTEGER now;
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&now);
  const auto perSecond = static_cast<std::uint64_t>(frequency.QuadPart);
  const auto ticks = static_cast<std::uint64_t>(now.QuadPart);
  return ticks / perSecond * 1000 + ticks % perSecond * 1000 / perSecond;
}

}  // namespace sample_runtime
