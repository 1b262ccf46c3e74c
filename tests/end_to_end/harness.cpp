#include "tests/end_to_end/harness.h"

#include <windows.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace end_to_end {
namespace {

constexpr std::string_view listNotice = "reset state root DACL to current user and system principals";

// Spaces, an apostrophe, Cyrillic letters and a character beyond the first plane. Short, since a path in an attempt
// directory must stay below 260 units.
constexpr wchar_t oddName[] = L"d'or \u0416\u0443\u043a \xd83c\xdf88 ";

std::wstring variable(const wchar_t* name) {
  wchar_t value[32768];
  return {value, GetEnvironmentVariableW(name, value, 32768)};
}

std::wstring temporaryDirectory() {
  wchar_t path[MAX_PATH + 1];
  std::wstring directory(path, GetTempPathW(MAX_PATH + 1, path));
  while (directory.ends_with(L'\\')) directory.pop_back();
  return directory;
}

std::wstring besideTestProgram(const wchar_t* name) {
  wchar_t path[32768];
  const std::wstring program(path, GetModuleFileNameW(nullptr, path, 32768));
  return program.substr(0, program.find_last_of(L'\\') + 1) + name;
}

// Tests run in processes of their own, side by side, and a process may run several.
std::wstring freshDirectory() {
  static int count = 0;
  return temporaryDirectory() + L"\\" + oddName + std::to_wstring(GetCurrentProcessId()) + L"-" +
         std::to_wstring(++count);
}

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result + "\"";
}

void addMember(std::string& json, const std::string& key, const std::string& value) {
  if (json != "{") json += ',';
  json.append(quoted(key)).append(":").append(value);
}

void addOptional(std::string& json, const std::string& key, const std::string& value) {
  if (!value.empty()) addMember(json, key, quoted(value));
}

std::string deliveryText(const std::string& id) { return "{\"deliveryId\":" + quoted(id) + ",\"schemaVersion\":1}"; }

// "PID TIME NONCE" a line.
void readStarts(const std::wstring& path, const std::string& slot, std::vector<RuntimeStart>& starts) {
  for (const std::string& line : splitLines(readFile(path))) {
    std::istringstream words(line);
    RuntimeStart start{.slot = slot, .processId = 0, .time = 0, .nonce = {}};
    if (words >> start.processId >> start.time >> start.nonce) starts.push_back(start);
  }
}

}  // namespace

const std::string deliveryA(64, 'a');
const std::string deliveryB(64, 'b');

std::string StateText::json() const {
  std::string text = "{";
  addOptional(text, "active", active);
  addMember(text, "attemptCount", std::to_string(attemptCount));
  addOptional(text, "candidate", candidate);
  addMember(text, "generation", std::to_string(generation));
  addOptional(text, "lastRequestId", lastRequestId);
  addOptional(text, "previous", previous);
  if (recovered) addMember(text, "recovered", "true");
  std::string list = "[";
  for (const std::string& slot : rejected) list.append(list == "[" ? "" : ",").append(quoted(slot));
  addMember(text, "rejected", list + "]");
  addMember(text, "schemaVersion", "1");
  return text + "}";
}

std::string pendingText(const std::string& candidate, const std::string& requestId, std::uint64_t generation) {
  return "{\"candidate\":" + quoted(candidate) + ",\"expectedGeneration\":" + std::to_string(generation) +
         ",\"requestId\":" + quoted(requestId) + ",\"schemaVersion\":1}";
}

std::vector<std::string> RuntimeLog::all(std::string_view key) const {
  std::vector<std::string> texts;
  for (const std::string& line : lines_) {
    if (line.starts_with(key) && line.size() > key.size() && line[key.size()] == ' ') {
      texts.push_back(line.substr(key.size() + 1));
    }
  }
  return texts;
}

std::string RuntimeLog::one(std::string_view key) const {
  const std::vector<std::string> texts = all(key);
  if (texts.size() != 1) {
    throw std::runtime_error(std::to_string(texts.size()) + " lines " + std::string(key) + " in the log:\n" + text());
  }
  return texts.front();
}

std::string RuntimeLog::text() const {
  std::string joined;
  for (const std::string& line : lines_) joined += line + "\n";
  return joined;
}

std::vector<std::string> Launcher::lines() const {
  std::vector<std::string> lines = splitLines(rawErrors());
  std::erase(lines, listNotice);
  return lines;
}

bool Launcher::printsWithin(const std::string& line, std::uint32_t limit) const {
  return waitUntil(
      [&] {
        const std::vector<std::string> printed = lines();
        return std::find(printed.begin(), printed.end(), line) != printed.end();
      },
      limit);
}

Installation::Installation(RootFrom rootFrom) : Installation(rootFrom, freshDirectory(), {}) {}

Installation::Installation(const std::wstring& stateRoot)
    : Installation(RootFrom::bootstrap, freshDirectory(), stateRoot) {}

Installation::Installation(RootFrom rootFrom, const std::wstring& base, const std::wstring& stateRoot)
    : base_(base), install_(base + L"\\pro gram"), root_(stateRoot), rootFrom_(rootFrom) {
  if (root_.empty()) {
    root_ = base +
            (rootFrom == RootFrom::localAppData ? L"\\Quorvex\\tessellary\\native" : L"\\r\u00f6\u00f6t \xd83c\xdf88");
  }
  removeTree(base_);  // of a process that had the same id and was ended in the middle
  removeTree(root_);
  createDirectories(install_);
  copyFile(launcherUnderTest(), install_ + L"\\launcher.exe");
  writeBootstrap(bootstrapText());
}

Installation::~Installation() {
  removeTree(root_);
  removeTree(base_);
}

std::wstring Installation::slotDirectory(const std::string& slot) const {
  return slot == "seed" ? install_ + L"\\seed" : root_ + L"\\slots\\" + toWide(slot);
}

void Installation::writeBootstrap(std::string_view json) { writeFile(install_ + L"\\bootstrap-v1.json", json); }

void Installation::removeBootstrap() { DeleteFileW((install_ + L"\\bootstrap-v1.json").c_str()); }

std::string Installation::bootstrapText(int schemaVersion) const {
  std::string text =
      "{\"schemaVersion\":" + std::to_string(schemaVersion) + ",\"installId\":\"end-to-end\",\"seedSlot\":\"seed\"";
  if (rootFrom_ == RootFrom::bootstrap) text += ",\"stateRoot\":" + quoted(toUtf8(root_));
  return text + "}";
}

void Installation::installSeed(const std::string& script, const std::string& deliveryId) {
  installSlot("seed", script, {.complete = false, .deliveryId = deliveryId});
}

void Installation::installSlot(const std::string& slot, const std::string& script, const SlotOptions& options) {
  const std::wstring directory = slotDirectory(slot);
  createDirectories(directory);
  copyFile(sampleRuntime(), directory + L"\\entry-v1.exe");
  writeFile(directory + L"\\script.txt", "log runtime.log\n" + script);
  if (!options.deliveryId.empty()) writeFile(directory + L"\\delivery-v1.json", deliveryText(options.deliveryId));
  if (options.complete) writeFile(directory + L"\\COMPLETE-v1", "");
}

void Installation::writeBeside(const std::string& slot, const std::wstring& name, std::string_view content) {
  writeFile(slotDirectory(slot) + L"\\" + name, content);
}

void Installation::writeInRoot(const std::wstring& name, std::string_view content) {
  createDirectories(root_);
  writeFile(inRoot(name), content);
}

std::vector<std::wstring> Installation::temporaryFiles() const {
  std::vector<std::wstring> names = listDirectory(root_);
  std::erase_if(names, [](const std::wstring& name) { return name.find(L".tmp-") == std::wstring::npos; });
  return names;
}

Launcher Installation::start(const LauncherStart& start) {
  const ProcessStart prepared = prepare(start);
  return {prepared, prepared.errorFile};
}

ProcessStart Installation::prepare(const LauncherStart& start) {
  std::vector<Variable> variables = start.variables;
  const bool named = std::any_of(variables.begin(), variables.end(),
                                 [](const Variable& variable) { return variable.name == L"LOCALAPPDATA"; });
  if (rootFrom_ == RootFrom::localAppData && !named) variables.push_back({L"LOCALAPPDATA", base_});
  return {.executable = install_ + L"\\launcher.exe",
          .commandLineTail = start.arguments,
          .currentDirectory = base_,
          .errorFile = base_ + L"\\errors " + std::to_wstring(++launchers_) + L".txt",
          .environment = environmentWith(variables),
          .inherited = start.inherited,
          .flags = start.flags};
}

RuntimeLog Installation::log(const std::string& slot) const {
  return RuntimeLog(splitLines(readFile(slotDirectory(slot) + L"\\runtime.log")));
}

std::vector<RuntimeStart> Installation::starts() const {
  std::vector<RuntimeStart> starts;
  readStarts(slotDirectory("seed") + L"\\starts.txt", "seed", starts);
  for (const std::wstring& slot : listDirectory(root_ + L"\\slots")) {
    readStarts(root_ + L"\\slots\\" + slot + L"\\starts.txt", toUtf8(slot), starts);
  }
  std::stable_sort(starts.begin(), starts.end(),
                   [](const RuntimeStart& a, const RuntimeStart& b) { return a.time < b.time; });
  return starts;
}

std::vector<std::string> Installation::startedSlots() const {
  std::vector<std::string> slots;
  for (const RuntimeStart& start : starts()) slots.push_back(start.slot);
  return slots;
}

bool Installation::logsWithin(const std::string& slot, std::string_view key, std::uint32_t limit) const {
  return waitUntil([&] { return log(slot).has(key); }, limit);
}

bool Installation::startsWithin(std::size_t count, std::uint32_t limit) const {
  return waitUntil([&] { return starts().size() >= count; }, limit);
}

std::wstring launcherUnderTest() {
  const std::wstring named = variable(L"LAUNCHER_UNDER_TEST");
  return named.empty() ? besideTestProgram(L"launcher.exe") : named;
}

std::wstring sampleRuntime() {
  const std::wstring named = variable(L"SAMPLE_RUNTIME");
  return named.empty() ? besideTestProgram(L"entry-v1.exe") : named;
}

}  // namespace end_to_end
