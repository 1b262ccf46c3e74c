#include "tests/call_faults/world.h"

#include <stdexcept>

#include "tests/call_faults/text.h"

namespace call_faults {
namespace {

using namespace launcher_stub::tests;

// Short, since an attempt's files have long names: letters beyond the system's code page are in it all the same.
constexpr std::wstring_view baseName = L"cf \u0416\u0443\u043a";
constexpr std::wstring_view linkName = L"00000000000000000000000000000004";

// Of the year 2022, in 100 ns.
constexpr unsigned long long oldest = 133'000'000'000'000'000;

std::wstring runtimeProgram() {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), 32768));
  return path.substr(0, path.find_last_of(L'\\') + 1) + L"call_fault_runtime.exe";
}

struct Entry {
  std::wstring name;
  DWORD attributes = 0;
};

std::vector<Entry> entriesOf(const std::wstring& directory) {
  std::vector<Entry> entries;
  WIN32_FIND_DATAW found{};
  HANDLE search = FindFirstFileW((directory + L"\\*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return entries;
  do {
    const std::wstring name = found.cFileName;
    if (name != L"." && name != L"..") entries.push_back({name, found.dwFileAttributes});
  } while (FindNextFileW(search, &found));
  FindClose(search);
  return entries;
}

// Links stay, and so does `kept`.
void empty(const std::wstring& directory, const std::wstring& kept = {}) {
  for (const Entry& entry : entriesOf(directory)) {
    const std::wstring path = directory + L"\\" + entry.name;
    if (entry.name == kept || (entry.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) continue;
    if ((entry.attributes & FILE_ATTRIBUTE_READONLY) != 0) SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    if ((entry.attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      DeleteFileW(path.c_str());
    } else {
      empty(path);
      RemoveDirectoryW(path.c_str());
    }
  }
}

void ensureDirectory(const std::wstring& path) {
  if (!exists(path)) makeDirectory(path);
}

void put(const std::wstring& path, const std::string& contents) {
  if (!contents.empty()) writeFile(path, contents);
}

std::string inQuotes(const std::wstring& path) {
  std::string text = "\"";
  for (const char c : toUtf8(path)) text += c == '\\' ? std::string("\\\\") : std::string(1, c);
  return text + "\"";
}

void addTemporaries(const std::wstring& directory, std::vector<std::wstring>& found) {
  for (const Entry& entry : entriesOf(directory)) {
    if (entry.name.find(L".tmp-") != std::wstring::npos) found.push_back(entry.name);
  }
}

}  // namespace

World::World(const LaunchKind& kind)
    : kind_(kind), base_(baseName), install_(base_ / L"p"), outside_(base_ / L"outside") {
  root_ = kind.root == Root::ready     ? base_ / L"r"
          : kind.root == Root::missing ? base_ / L"n\\e\\w"
                                       : base_ / L"l\\Quorvex\\tessellary\\native";
  makeDirectory(install_);
  makeDirectory(install_ + L"\\seed");
  makeDirectory(outside_);
  writeFile(outside_ + L"\\kept", "kept");
  setLastWriteTime(outside_, oldest);
  if (kind.root == Root::ready) {
    makeDirectory(root_);
    makeDirectory(root_ + L"\\slots");
    makeDirectory(root_ + L"\\attempts");
    if (kind.oldAttempts) makeDirectoryLink(root_ + L"\\attempts\\" + std::wstring(linkName), outside_);
  } else {
    makeDirectory(base_ / (kind.root == Root::missing ? L"n" : L"l"));
  }
  SetEnvironmentVariableW(L"LOCALAPPDATA", (base_ / L"l").c_str());
  for (const auto& [slot, plan] : kind.runtimes) installRuntime(slot, plan);
  const std::string setting = kind.root == Root::local ? std::string() : ",\"stateRoot\":" + inQuotes(root_);
  const std::string right = "{\"installId\":\"faults\",\"schemaVersion\":1,\"seedSlot\":\"seed\"" + setting + "}";
  if (kind.bootstrap != "none") {
    writeFile(install_ + L"\\bootstrap-v1.json", kind.bootstrap == "newer"
                                                     ? "{\"schemaVersion\":2" + setting + "}"
                                                     : (kind.bootstrap.empty() ? right : kind.bootstrap));
  }
}

std::wstring World::slotDirectory(const std::string& slot) const {
  return slot == "seed" ? install_ + L"\\seed" : root_ + L"\\slots\\" + toWide(slot);
}

void World::installRuntime(const std::string& slot, const RuntimePlan& plan) {
  const std::wstring directory = slotDirectory(slot);
  ensureDirectory(directory);
  if (slot == kind_.brokenSlot) {
    writeFile(directory + L"\\entry-v1.exe", "not a program");
  } else if (!CopyFileW(runtimeProgram().c_str(), (directory + L"\\entry-v1.exe").c_str(), FALSE)) {
    throw std::runtime_error("cannot copy " + toUtf8(runtimeProgram()));
  }
  writeFile(directory + L"\\script", plan.script);
  if (!kind_.foreignSlot.empty()) {
    const std::string id(64, slot == kind_.foreignSlot ? 'f' : 'a');
    writeFile(directory + L"\\delivery-v1.json", "{\"deliveryId\":\"" + id + "\",\"schemaVersion\":1}");
  }
  if (slot != "seed") writeFile(directory + L"\\COMPLETE-v1", "");
}

void World::reset() {
  if (kind_.root != Root::ready) {
    empty(base_ / (kind_.root == Root::missing ? L"n" : L"l"));
  } else {
    const std::wstring attempts = root_ + L"\\attempts";
    empty(attempts);
    for (const Entry& entry : entriesOf(root_)) {
      if ((entry.attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) DeleteFileW((root_ + L"\\" + entry.name).c_str());
    }
    put(root_ + L"\\boot-v1.json", kind_.state);
    put(root_ + L"\\boot-v1.previous.json", kind_.previous);
    put(root_ + L"\\pending-v1.json", kind_.pending);
    if (kind_.oldAttempts) makeOldAttempts();
  }
  for (const auto& [slot, plan] : kind_.runtimes) DeleteFileW((slotDirectory(slot) + L"\\asked").c_str());
}

// From the oldest: one that is full, with what cannot simply be deleted; an empty one; the newest.
void World::makeOldAttempts() {
  const std::wstring attempts = root_ + L"\\attempts\\0000000000000000000000000000000";
  makeDirectory(attempts + L"1");
  writeFile(attempts + L"1\\boot-v1.json", "{}");
  makeDirectory(attempts + L"1\\deep");
  writeFile(attempts + L"1\\deep\\fixed", "x");
  setAttributes(attempts + L"1\\deep\\fixed", FILE_ATTRIBUTE_READONLY);
  setLastWriteTime(attempts + L"1", oldest + 1'000'000'000);
  makeDirectory(attempts + L"2");
  setLastWriteTime(attempts + L"2", oldest + 2'000'000'000);
  makeDirectory(attempts + L"3");
  setLastWriteTime(attempts + L"3", oldest + 9'000'000'000);
}

Documents World::documents() const {
  Documents found;
  found.state = readFile(root_ + L"\\boot-v1.json");
  found.previous = readFile(root_ + L"\\boot-v1.previous.json");
  found.pending = readFile(root_ + L"\\pending-v1.json");
  addTemporaries(root_, found.temporaries);
  for (const Entry& entry : entriesOf(root_ + L"\\attempts")) {
    found.attempts.push_back(entry.name);
    addTemporaries(root_ + L"\\attempts\\" + entry.name, found.temporaries);
  }
  return found;
}

bool World::othersUntouched() const { return readFile(outside_ + L"\\kept") == "kept"; }

std::map<std::wstring, RuntimePlan> World::plans() const {
  std::map<std::wstring, RuntimePlan> plans;
  for (const auto& [slot, plan] : kind_.runtimes) plans[slotDirectory(slot) + L"\\entry-v1.exe"] = plan;
  return plans;
}

std::string World::slotOf(const std::wstring& executable) const {
  for (const auto& [slot, plan] : kind_.runtimes) {
    if (executable == slotDirectory(slot) + L"\\entry-v1.exe") return slot;
  }
  return toUtf8(executable);
}

}  // namespace call_faults
