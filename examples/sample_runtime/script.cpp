#include "script.h"

#include <windows.h>

#include <algorithm>

#include "journal.h"

namespace sample_runtime {
namespace {

std::vector<std::string> splitLines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.remove_suffix(1);
    while (!line.empty() && line.front() == ' ') line.remove_prefix(1);
    if (!line.empty() && line.front() != '#') lines.emplace_back(line);
  }
  return lines;
}

// Appends the lines that follow the heading, up to the next one. False: no such heading.
bool appendSection(const std::vector<std::string>& lines, const std::string& heading,
                   std::vector<std::string>& result) {
  auto line = std::find(lines.begin(), lines.end(), heading);
  if (line == lines.end()) return false;
  for (++line; line != lines.end() && line->front() != '['; ++line) result.push_back(*line);
  return true;
}

}  // namespace

std::vector<std::string> linesForStart(std::string_view script, int start) {
  const std::vector<std::string> lines = splitLines(script);
  std::vector<std::string> result;
  for (auto line = lines.begin(); line != lines.end() && line->front() != '['; ++line) result.push_back(*line);
  if (!appendSection(lines, "[start " + std::to_string(start) + "]", result)) {
    (void)appendSection(lines, "[otherwise]", result);  // neither: nothing more to do at this start
  }
  return result;
}

bool isImpatient(std::string_view script) {
  const std::vector<std::string> lines = splitLines(script);
  return !lines.empty() && lines.front() == "impatient";
}

std::wstring executableDirectory() {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return path.substr(0, path.find_last_of(L'\\'));
}

int countStart(std::string_view nonce) {
  const std::wstring path = executableDirectory() + L"\\starts.txt";
  appendLine(path, std::to_string(GetCurrentProcessId()) + " " + std::to_string(milliseconds()) + " " +
                       (nonce.empty() ? "-" : std::string(nonce)));
  const std::string starts = readText(path);
  return static_cast<int>(std::count(starts.begin(), starts.end(), '\n'));
}

std::string readText(const std::wstring& path, std::size_t limit) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return {};
  std::string text(limit, '\0');
  DWORD count = 0;
  if (!ReadFile(file, text.data(), static_cast<DWORD>(limit), &count, nullptr)) count = 0;
  CloseHandle(file);
  text.resize(count);
  return text;
}

}  // namespace sample_runtime
