#include "commands.h"

#include <windows.h>

#include <charconv>
#include <map>

#include "grandchild.h"
#include "journal.h"
#include "script.h"
#include "text.h"
#include "window.h"

namespace sample_runtime {
namespace {

using launcher_client::Launch;

[[noreturn]] void stop(std::string_view why, int code) {
  note("failed", why);
  ExitProcess(static_cast<UINT>(code));
}

void noteOutcome(std::string_view what, bool done) {
  if (!done) note("failed", std::string(what) + " " + std::to_string(GetLastError()));
}

// Decimal, or hexadecimal after "0x".
std::uint32_t takeNumber(std::string_view& rest) {
  std::string_view word = takeWord(rest);
  const bool hexadecimal = word.starts_with("0x");
  if (hexadecimal) word.remove_prefix(2);
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number, hexadecimal ? 16 : 10);
  if (error != std::errc() || end != word.data() + word.size())
    stop("number expected: " + std::string(word), badScript);
  return number;
}

// A path fills the rest of its line. "{state}", "{attempt}" and "{install}" at its start stand for the launcher's
// directories; any other relative path lies beside the executable.
std::wstring pathOf(const Launch& launch, std::string_view text) {
  const std::pair<std::string_view, const std::wstring*> places[] = {
      {"{state}", &launch.stateRoot}, {"{attempt}", &launch.attemptDirectory}, {"{install}", &launch.installDirectory}};
  for (const auto& [word, directory] : places) {
    if (text.starts_with(word)) return *directory + toWide(text.substr(word.size()));
  }
  const bool absolute = text.size() > 1 && (text[1] == ':' || text[0] == '\\');
  return absolute ? toWide(text) : executableDirectory() + L"\\" + toWide(text);
}

bool isPresent(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

// --- Documents in the right form and in wrong ones ---

std::string without(std::string document, std::string_view part) {
  const std::size_t at = document.find(part);
  if (at != std::string::npos) document.erase(at, part.size());
  return document;
}

// Another token of the same length: each digit and letter moves on by one.
std::string foreign(std::string token) {
  for (char& c : token) c = c == '9' || c == 'f' ? '0' : static_cast<char>(c + 1);
  return token;
}

Launch reference(const Launch& launch, std::string_view form) {
  Launch changed = launch;
  if (form == "foreign-nonce") changed.nonce = foreign(launch.nonce);
  if (form == "other-slot") changed.slot = launch.slot == "seed" ? "0123abcd" : "seed";
  return changed;
}

std::string spoiled(const std::string& document, std::string_view form) {
  if (form == "half") return document.substr(0, document.size() / 2);
  if (form == "no-version") return without(document, ",\"schemaVersion\":1");
  if (form == "newer") {
    std::string newer = document;
    newer[newer.find("\"schemaVersion\":1") + 16] = '2';
    return newer;
  }
  if (form == "empty") return {};
  return document;
}

void writeDocument(const std::wstring& path, const std::string& document, std::string_view form) {
  noteOutcome("write " + toUtf8(path), launcher_client::writeWhole(path, spoiled(document, form)));
}

// --- One function for each command ---

void report(Runtime& runtime, std::string_view) {
  note("command-line", toUtf8(GetCommandLineW()));
  for (const std::wstring& argument : runtime.arguments) {
    note("argument", toUtf8(argument));
    note("argument-units", hexUnits(argument));
  }
  for (const wchar_t* name :
       {L"QUORVEX_BOOT_STATE_ROOT", L"QUORVEX_BOOT_ATTEMPT_DIR", L"QUORVEX_BOOT_LEASE", L"QUORVEX_BOOT_INSTALL_DIR"}) {
    wchar_t value[4096] = {};
    std::string line = toUtf8(name);
    if (GetEnvironmentVariableW(name, value, 4096) != 0) {
      line += '=';
      line += toUtf8(value);
    }
    note("variable", line);
  }
  wchar_t* environment = GetEnvironmentStringsW();
  for (const wchar_t* entry = environment; *entry != L'\0'; entry += wcslen(entry) + 1) {
    note("environment", toUtf8(entry));
  }
  FreeEnvironmentStringsW(environment);
  wchar_t directory[4096] = {};
  GetCurrentDirectoryW(4096, directory);
  note("directory", toUtf8(directory));
  for (const HandleFound& handle : runtime.handles) note("handle", describe(handle));
  BOOL inJob = FALSE;
  noteOutcome("job", IsProcessInJob(GetCurrentProcess(), nullptr, &inJob) != 0);
  note("in-job", inJob ? "yes" : "no");
  note("report-end", "");
}

void setLog(Runtime& runtime, std::string_view rest) { setJournal(pathOf(runtime.launch, rest)); }

void comment(Runtime&, std::string_view rest) { note("note", rest); }

void sleepFor(Runtime&, std::string_view rest) { Sleep(takeNumber(rest)); }

void waitForFile(Runtime& runtime, std::string_view rest) {
  const std::uint32_t limit = takeNumber(rest);
  const std::wstring path = pathOf(runtime.launch, rest);
  const std::uint64_t start = milliseconds();
  while (!isPresent(path)) {
    if (milliseconds() - start >= limit) stop("waited in vain for " + toUtf8(path), waitedInVain);
    Sleep(20);
  }
}

void createFile(Runtime& runtime, std::string_view rest) {
  noteOutcome("create", launcher_client::writeWhole(pathOf(runtime.launch, rest), {}));
}

void ready(Runtime& runtime, std::string_view form) {
  const Launch launch = reference(runtime.launch, form);
  writeDocument(launch.attemptDirectory + L"\\ready-v1", launcher_client::slotReference(launch.slot, launch.nonce),
                form);
}

void healthy(Runtime& runtime, std::string_view form) {
  const Launch launch = reference(runtime.launch, form);
  writeDocument(launch.attemptDirectory + L"\\healthy-v1", launcher_client::slotReference(launch.slot, launch.nonce),
                form);
}

void restart(Runtime& runtime, std::string_view rest) {
  std::string_view requestId = takeWord(rest);
  if (requestId == "-") requestId = {};
  const Launch launch = reference(runtime.launch, rest);
  writeDocument(launch.attemptDirectory + L"\\restart-v1.json",
                launcher_client::slotReference(launch.slot, launch.nonce, requestId), rest);
}

void pending(Runtime& runtime, std::string_view rest) {
  const std::string_view candidate = takeWord(rest);
  const std::string_view requestId = takeWord(rest);
  const std::string_view generation = takeWord(rest);
  if (generation.empty() || generation == "current") {
    if (rest.empty()) {
      noteOutcome("pending", launcher_client::leavePendingRequest(runtime.launch, candidate, requestId));
      return;
    }
  }
  std::uint64_t number = 0;
  if (generation == "current") {
    noteOutcome("generation", launcher_client::readCurrentGeneration(runtime.launch, number));
  } else {
    (void)std::from_chars(generation.data(), generation.data() + generation.size(), number);  // no number: 0
  }
  writeDocument(runtime.launch.stateRoot + L"\\pending-v1.json",
                launcher_client::pendingRequest(candidate, requestId, number), rest);
}

// Stages this very executable under another slot name, with another script.
void stage(Runtime& runtime, std::string_view rest) {
  const std::string_view slot = takeWord(rest);
  const std::wstring here = executableDirectory();
  noteOutcome("stage", launcher_client::stageSlot(runtime.launch, slot,
                                                  {{here + L"\\entry-v1.exe", L"entry-v1.exe"},
                                                   {pathOf(runtime.launch, rest), L"script.txt"}}));
}

void grandchild(Runtime& runtime, std::string_view rest) {
  const std::uint32_t duration = takeNumber(rest);
  const std::uint32_t id = startGrandchild(duration, rest.empty() ? L"" : pathOf(runtime.launch, rest));
  noteOutcome("grandchild", id != 0);
  note("grandchild", std::to_string(id));
}

struct Hold {
  HANDLE file;
  std::uint32_t duration;
};

DWORD WINAPI letGoLater(void* parameter) {
  const Hold* hold = static_cast<Hold*>(parameter);
  Sleep(hold->duration);
  CloseHandle(hold->file);
  note("let-go", "");
  delete hold;
  return 0;
}

// The script goes on meanwhile; the end of the process lets go as well.
void holdFile(Runtime& runtime, std::string_view rest) {
  const std::uint32_t duration = takeNumber(rest);
  HANDLE file = openForItself(pathOf(runtime.launch, rest));
  noteOutcome("hold", file != nullptr);
  if (file == nullptr) return;
  note("holding", rest);
  HANDLE thread = CreateThread(nullptr, 0, letGoLater, new Hold{file, duration}, 0, nullptr);
  if (thread != nullptr) CloseHandle(thread);
}

// The lease as it came: children inherit it.
void shareLease(Runtime& runtime, std::string_view) {
  noteOutcome("share-lease", SetHandleInformation(runtime.launch.lease, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT) != 0);
}

// Until its window is closed, or the time is over. With "ignore-close" the window stays.
void showWindow(Runtime&, std::string_view rest) {
  const std::uint32_t limit = takeNumber(rest);
  noteOutcome("window", showWindowUntilClosed(limit, rest == "ignore-close"));
}

void leave(Runtime&, std::string_view rest) { ExitProcess(takeNumber(rest)); }

void crash(Runtime&, std::string_view) {
  // The fault alone is to end the process, with its own code: no dialog, no debugger.
  SetUnhandledExceptionFilter([](EXCEPTION_POINTERS*) -> LONG { return EXCEPTION_EXECUTE_HANDLER; });
  // A page that forbids all access: address zero itself is not sure to be unused everywhere.
  *static_cast<volatile int*>(VirtualAlloc(nullptr, 4096, MEM_RESERVE | MEM_COMMIT, PAGE_NOACCESS)) = 1;
}

using Command = void (*)(Runtime&, std::string_view rest);

const std::map<std::string_view, Command> commands = {
    {"report", report},     {"log", setLog},
    {"note", comment},      {"sleep", sleepFor},
    {"wait", waitForFile},  {"create", createFile},
    {"ready", ready},       {"healthy", healthy},
    {"restart", restart},   {"pending", pending},
    {"stage", stage},       {"grandchild", grandchild},
    {"hold", holdFile},     {"exit", leave},
    {"crash", crash},       {"share-lease", shareLease},
    {"window", showWindow}, {"impatient", [](Runtime&, std::string_view) {}},
};

}  // namespace

void carryOut(Runtime& runtime, std::string_view line) {
  note("at", std::to_string(milliseconds()) + " " + std::string(line));
  std::string_view rest = line;
  const auto command = commands.find(takeWord(rest));
  if (command == commands.end()) stop("unknown command: " + std::string(line), badScript);
  command->second(runtime, rest);
}

}  // namespace sample_runtime
