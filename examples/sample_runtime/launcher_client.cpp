#include "launcher_client.h"

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <ntsecapi.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace launcher_client {
namespace {

constexpr std::size_t largestDocument = 65536;  // bytes; the launcher reads no more
constexpr DWORD retryPauseMs = 50;
constexpr std::size_t longestPlainPath = 240;  // units; directories reach the plain limit at 248, files at 260

// --- Helpers for the calls of the system ---

// Closes on leaving the scope and keeps the last error, which the caller may want to read.
class File {
 public:
  explicit File(HANDLE handle) : handle_(handle) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  File(File&&) = delete;
  File& operator=(File&&) = delete;
  ~File() { (void)close(); }

  bool isOpen() const { return handle_ != INVALID_HANDLE_VALUE; }
  HANDLE get() const { return handle_; }

  bool close() {
    if (!isOpen()) return true;
    const DWORD error = GetLastError();
    const bool closed = CloseHandle(handle_) != 0;
    handle_ = INVALID_HANDLE_VALUE;
    if (closed) SetLastError(error);
    return closed;
  }

 private:
  HANDLE handle_;
};

bool fail(DWORD error) {
  SetLastError(error);
  return false;
}

// The one place that fills a Failure. Keeps the last error.
bool report(Failure* failure, std::string_view action) {
  const DWORD error = GetLastError();
  if (failure != nullptr) {
    failure->action = action;
    failure->code = error;
  }
  return fail(error);
}

// Somebody has the file open, or it is just being deleted: over in a moment, as a rule.
bool mayPass(DWORD error) {
  return error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED || error == ERROR_LOCK_VIOLATION;
}

// Repeats `action` while it fails for a reason that may pass. The last error is that of the last try.
template <typename Action>
bool patiently(const Action& action) {
  const ULONGLONG begin = GetTickCount64();
  while (!action()) {
    const DWORD error = GetLastError();
    if (!mayPass(error) || GetTickCount64() - begin >= patienceMs) return fail(error);
    Sleep(retryPauseMs);
  }
  return true;
}

HANDLE openPatiently(const std::wstring& path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) {
  HANDLE file = INVALID_HANDLE_VALUE;
  (void)patiently([&] {  // the handle says it
    file = CreateFileW(path.c_str(), access, share, nullptr, disposition, attributes, nullptr);
    return file != INVALID_HANDLE_VALUE;
  });
  return file;
}

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool startsWith(std::wstring_view text, std::wstring_view start) { return text.substr(0, start.size()) == start; }

// The form of a path that the system takes at any length. A short one stays as it is, and so does one that cannot be
// brought into that form.
std::wstring longPath(const std::wstring& path) {
  if (path.size() < longestPlainPath || startsWith(path, L"\\\\?\\")) return path;
  std::wstring full(32768, L'\0');  // the longest path there is
  const DWORD length = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
  if (length == 0 || length >= full.size()) return path;
  full.resize(length);
  if (startsWith(full, L"\\\\.\\")) return path;
  return startsWith(full, L"\\\\") ? L"\\\\?\\UNC" + full.substr(1) : L"\\\\?\\" + full;
}

// Keeps the last error: deleting is what is done after a failure, as far as it goes.
void deleteQuietly(const std::wstring& path) {
  const DWORD error = GetLastError();
  (void)DeleteFileW(path.c_str());
  SetLastError(error);
}

enum class Presence { absent, present, unknown };

// Only what the system calls "not found" is absent. A file that cannot be asked for may well be there.
Presence presenceOf(const std::wstring& path) {
  if (GetFileAttributesW(longPath(path).c_str()) != INVALID_FILE_ATTRIBUTES) return Presence::present;
  const DWORD error = GetLastError();
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ? Presence::absent : Presence::unknown;
}

// False: not set, empty, or not to be had. The last error says so then.
bool readVariable(const wchar_t* name, std::wstring& value) {
  std::wstring text(32767, L'\0');  // the longest value there is
  const DWORD length = GetEnvironmentVariableW(name, text.data(), static_cast<DWORD>(text.size()));
  if (length == 0 || length >= text.size()) return fail(ERROR_ENVVAR_NOT_FOUND);
  value = text.substr(0, length);
  return true;
}

bool createDirectory(const std::wstring& path) {
  return CreateDirectoryW(longPath(path).c_str(), nullptr) != 0 || GetLastError() == ERROR_ALREADY_EXISTS;
}

// --- Names and numbers, by the launcher's rules ---

bool isMadeOf(std::string_view text, std::string_view characters, std::size_t least, std::size_t most) {
  return text.size() >= least && text.size() <= most && text.find_first_not_of(characters) == std::string_view::npos;
}

constexpr std::string_view hexDigits = "0123456789abcdef";

bool isSlotName(std::string_view text) { return isMadeOf(text, hexDigits, 4, 64); }

bool isToken(std::string_view text) {
  return isMadeOf(text, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_", 8, 64);
}

bool isDeliveryId(std::string_view text) { return isMadeOf(text, hexDigits, 64, 64); }

// Decimal digits and nothing else, at most 18446744073709551615; in every locale.
template <typename Text>
bool readDecimal(const Text& digits, std::uint64_t& number) {
  std::uint64_t value = 0;
  for (const auto c : digits) {
    if (c < '0' || c > '9') return false;
    const auto digit = static_cast<std::uint64_t>(c - '0');
    if (value > (UINT64_MAX - digit) / 10) return false;
    value = value * 10 + digit;
  }
  number = value;
  return !digits.empty();
}

// Slot names are plain ASCII.
std::wstring widened(std::string_view ascii) { return {ascii.begin(), ascii.end()}; }

// --- Documents ---

bool writeNewFile(const std::wstring& path, std::string_view content) {
  File file(openPatiently(path, GENERIC_WRITE, 0, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL));
  if (!file.isOpen()) return false;
  DWORD written = 0;
  if (!WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr)) return false;
  if (written != content.size()) return fail(ERROR_DISK_FULL);
  return FlushFileBuffers(file.get()) && file.close();
}

// The index right after the string that starts at `start` (its opening quote); npos: the document ends before it does.
std::size_t skipString(std::string_view document, std::size_t start) {
  std::size_t at = start + 1;
  while (at < document.size() && document[at] != '"') at += document[at] == '\\' ? 2U : 1U;
  return at < document.size() ? at + 1 : std::string_view::npos;
}

std::size_t skipSpace(std::string_view document, std::size_t at) {
  at = document.find_first_not_of(" \t\r\n", at);
  return at == std::string_view::npos ? document.size() : at;
}

// The value that starts at `at`: what stands between the quotes of a string, or a plain word.
bool readValue(std::string_view document, std::size_t at, std::string& text) {
  if (at >= document.size()) return false;
  const bool isString = document[at] == '"';
  const std::size_t end = isString ? skipString(document, at) : document.find_first_of(",}] \t\r\n", at);
  if (end == std::string_view::npos) return false;
  text = isString ? document.substr(at + 1, end - at - 2) : document.substr(at, end - at);
  return true;
}

// --- The slot to be staged ---

bool isSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

bool sameName(const std::wstring& a, const wchar_t* b) {
  return CompareStringOrdinal(a.c_str(), -1, b, -1, TRUE) == CSTR_EQUAL;
}

constexpr wchar_t entryName[] = L"entry-v1.exe";
constexpr wchar_t markerName[] = L"COMPLETE-v1";
constexpr wchar_t deliveryName[] = L"delivery-v1.json";
constexpr wchar_t stagingName[] = L"staging.lock";  // held while a process stages the slot

// A part of a file's name that stays below the slot: not empty, not "." or "..", no drive and no stream.
bool isPlainPart(std::wstring_view part) {
  return !part.empty() && part != L"." && part != L".." && part.find(L':') == std::wstring_view::npos;
}

bool isNameInSlot(const std::wstring& name) {
  for (const wchar_t* own : {markerName, deliveryName, stagingName}) {
    if (sameName(name, own)) return false;
  }
  std::size_t start = 0;
  for (std::size_t at = 0; at <= name.size(); ++at) {
    if (at < name.size() && !isSeparator(name[at])) continue;
    if (!isPlainPart(std::wstring_view(name).substr(start, at - start))) return false;
    start = at + 1;
  }
  return true;
}

bool areNamesInSlot(const std::vector<SlotFile>& files) {
  bool hasEntry = false;
  for (const SlotFile& file : files) {
    if (!isNameInSlot(file.name)) return false;
    hasEntry = hasEntry || sameName(file.name, entryName);
  }
  return hasEntry;
}

std::wstring withSystemSeparators(std::wstring name) {
  for (wchar_t& c : name) {
    if (c == L'/') c = L'\\';
  }
  return name;
}

// Creates the folders that lie between `directory` and the file `name` in it.
bool createFolders(const std::wstring& directory, const std::wstring& name) {
  for (std::size_t end = name.find(L'\\'); end != std::wstring::npos; end = name.find(L'\\', end + 1)) {
    if (!createDirectory(directory + L"\\" + name.substr(0, end))) return false;
  }
  return true;
}

bool removeContents(const std::wstring& directory);

bool removeEntry(const std::wstring& path, DWORD attributes) {
  const std::wstring name = longPath(path);
  if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) (void)SetFileAttributesW(name.c_str(), FILE_ATTRIBUTE_NORMAL);
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    return patiently([&] { return DeleteFileW(name.c_str()) != 0; });
  }
  // What lies behind a link belongs to somebody else.
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0 && !removeContents(path)) return false;
  return patiently([&] { return RemoveDirectoryW(name.c_str()) != 0; });
}

// Everything but the lock of the staging that does it. Stops at the first failure.
bool removeContents(const std::wstring& directory) {
  WIN32_FIND_DATAW found = {};
  HANDLE search = FindFirstFileW(longPath(directory + L"\\*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_FILE_NOT_FOUND;
  std::vector<WIN32_FIND_DATAW> entries;  // all of them first: removing while listing may leave some out
  do {
    const std::wstring_view name = found.cFileName;
    if (name != L"." && name != L".." && name != stagingName) entries.push_back(found);
  } while (FindNextFileW(search, &found));
  const DWORD error = GetLastError();
  FindClose(search);
  if (error != ERROR_NO_MORE_FILES) return fail(error);
  return std::all_of(entries.begin(), entries.end(), [&](const WIN32_FIND_DATAW& entry) {
    return removeEntry(directory + L"\\" + entry.cFileName, entry.dwFileAttributes);
  });
}

// Copies a file and waits until it is on the disk: the slot's marker must not get there first.
bool copyDurably(const std::wstring& source, const std::wstring& target) {
  const std::wstring from = longPath(source);
  const std::wstring to = longPath(target);
  if (!patiently([&] { return CopyFileW(from.c_str(), to.c_str(), FALSE) != 0; })) return false;
  // A copy has its original's attributes; a read-only one could be neither flushed nor replaced or removed later.
  if (!SetFileAttributesW(to.c_str(), FILE_ATTRIBUTE_NORMAL)) return false;
  File file(openPatiently(to, GENERIC_WRITE, shareAll, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL));
  return file.isOpen() && FlushFileBuffers(file.get()) && file.close();
}

bool copyFiles(const std::wstring& directory, const std::vector<SlotFile>& files) {
  return std::all_of(files.begin(), files.end(), [&](const SlotFile& file) {
    const std::wstring name = withSystemSeparators(file.name);
    return createFolders(directory, name) && copyDurably(file.source, directory + L"\\" + name);
  });
}

bool writeDelivery(const Launch& launch, const std::wstring& directory, std::string_view deliveryId) {
  std::string record = "{\"deliveryId\":\"" + std::string(deliveryId) + "\",\"schemaVersion\":1}";
  if (deliveryId.empty()) {
    const std::wstring ofSeed = launch.installDirectory + L"\\seed\\" + deliveryName;
    // Only where there is none, none is needed. One that cannot be read would make this slot differ from the seed.
    if (presenceOf(ofSeed) == Presence::absent) return true;
    if (!readWhole(ofSeed, record)) return false;
  }
  return writeWhole(directory + L"\\" + deliveryName, record);
}

}  // namespace

std::string Failure::text() const { return action + ": Win32 error " + std::to_string(code); }

bool readLaunch(Launch& launch, Failure* failure) {
  Launch read;
  std::wstring lease;
  if (!readVariable(L"QUORVEX_BOOT_STATE_ROOT", read.stateRoot) ||
      !readVariable(L"QUORVEX_BOOT_ATTEMPT_DIR", read.attemptDirectory) ||
      !readVariable(L"QUORVEX_BOOT_INSTALL_DIR", read.installDirectory) ||
      !readVariable(L"QUORVEX_BOOT_LEASE", lease)) {
    return report(failure, "not started by the launcher");
  }
  std::uint64_t number = 0;
  if (!readDecimal(lease, number) || number == 0 || number > UINTPTR_MAX) {
    (void)fail(ERROR_INVALID_DATA);
    return report(failure, "the lease's variable is no handle");
  }
  const auto value = static_cast<std::uintptr_t>(number);
  read.lease = reinterpret_cast<void*>(value);  // NOLINT(performance-no-int-to-ptr): a handle's value, as passed on

  std::string record;
  if (!readWhole(read.attemptDirectory + L"\\boot-v1.json", record)) {
    return report(failure, "cannot read the attempt's record");
  }
  if (!findMember(record, "slot", read.slot) || !findMember(record, "nonce", read.nonce) ||
      (read.slot != "seed" && !isSlotName(read.slot)) || !isToken(read.nonce)) {
    (void)fail(ERROR_INVALID_DATA);
    return report(failure, "the attempt's record makes no sense");
  }
  launch = read;
  return true;
}

bool keepLeaseFromChildren(const Launch& launch, Failure* failure) {
  return SetHandleInformation(launch.lease, HANDLE_FLAG_INHERIT, 0) != 0 ||
         report(failure, "cannot keep the lease from children");
}

bool writeReady(const Launch& launch, Failure* failure) {
  return writeWhole(launch.attemptDirectory + L"\\ready-v1", slotReference(launch.slot, launch.nonce)) ||
         report(failure, "cannot write the ready marker");
}

bool writeHealthy(const Launch& launch, Failure* failure) {
  return writeWhole(launch.attemptDirectory + L"\\healthy-v1", slotReference(launch.slot, launch.nonce)) ||
         report(failure, "cannot write the healthy marker");
}

bool askForRestart(const Launch& launch, std::string_view requestId, Failure* failure) {
  if (!requestId.empty() && !isToken(requestId)) {
    (void)fail(ERROR_INVALID_PARAMETER);
    return report(failure, "cannot ask for a restart by this request id");
  }
  return writeWhole(launch.attemptDirectory + L"\\restart-v1.json",
                    slotReference(launch.slot, launch.nonce, requestId)) ||
         report(failure, "cannot write the restart request");
}

bool readCurrentGeneration(const Launch& launch, std::uint64_t& generation, Failure* failure) {
  std::string state;
  if (!readWhole(launch.stateRoot + L"\\boot-v1.json", state)) return report(failure, "cannot read the boot state");
  std::string version;
  std::string digits;
  if (!findMember(state, "schemaVersion", version) || version != "1" || !findMember(state, "generation", digits) ||
      !readDecimal(digits, generation)) {
    (void)fail(ERROR_INVALID_DATA);
    return report(failure, "the boot state makes no sense");
  }
  return true;
}

bool leavePendingRequest(const Launch& launch, std::string_view candidate, std::string_view requestId,
                         Failure* failure) {
  if (!isSlotName(candidate) || !isToken(requestId)) {
    (void)fail(ERROR_INVALID_PARAMETER);
    return report(failure, "cannot request this candidate by this request id");
  }
  // Reading the generation and leaving the request are one step: nothing may change the state in between.
  const File lock(openPatiently(longPath(launch.stateRoot + L"\\state.lock"), GENERIC_READ | GENERIC_WRITE, 0,
                                OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL));
  if (!lock.isOpen()) return report(failure, "cannot take the state lock");
  std::uint64_t generation = 0;
  return readCurrentGeneration(launch, generation, failure) &&
         (writeWhole(launch.stateRoot + L"\\pending-v1.json", pendingRequest(candidate, requestId, generation)) ||
          report(failure, "cannot write the pending request"));
}

std::string newRequestId() {
  unsigned char bytes[16];
  if (!RtlGenRandom(bytes, sizeof bytes)) return {};
  std::string id;
  for (const unsigned char byte : bytes) {
    id += hexDigits[byte >> 4];
    id += hexDigits[byte & 15];
  }
  return id;
}

bool stageSlot(const Launch& launch, std::string_view slot, const std::vector<SlotFile>& files,
               std::string_view deliveryId, Failure* failure) {
  if (!isSlotName(slot) || !areNamesInSlot(files) || (!deliveryId.empty() && !isDeliveryId(deliveryId))) {
    (void)fail(ERROR_INVALID_PARAMETER);
    return report(failure, "cannot stage a slot by these names");
  }
  const std::wstring directory = launch.stateRoot + L"\\slots\\" + widened(slot);
  if (!createDirectory(directory)) return report(failure, "cannot create the slot's directory");
  // Two processes that stage the same slot would take each other's files away. It vanishes with the handle.
  const File staging(openPatiently(longPath(directory + L"\\" + stagingName), GENERIC_WRITE | DELETE, 0, OPEN_ALWAYS,
                                   FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE));
  if (!staging.isOpen()) return report(failure, "another process stages the slot");

  const std::wstring marker = directory + L"\\" + markerName;
  const Presence complete = presenceOf(marker);
  if (complete == Presence::present) (void)fail(ERROR_ALREADY_EXISTS);
  if (complete != Presence::absent) return report(failure, "the slot is complete, or may be");
  if (!removeContents(directory)) return report(failure, "cannot remove what an earlier staging left");
  if (!copyFiles(directory, files)) return report(failure, "cannot copy the slot's files");
  if (!writeDelivery(launch, directory, deliveryId)) return report(failure, "cannot write the delivery record");
  // The marker comes last: whoever sees it may rely on all the rest.
  return writeWhole(marker, {}) || report(failure, "cannot write the slot's marker");
}

bool writeWhole(const std::wstring& path, std::string_view content) {
  if (content.size() > largestDocument) return fail(ERROR_FILE_TOO_LARGE);
  // The name is this thread's own, so a file of that name can only be left over.
  const std::wstring temporary =
      longPath(path + L".new-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetCurrentThreadId()));
  const std::wstring target = longPath(path);
  const DWORD flags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
  if (writeNewFile(temporary, content) &&
      patiently([&] { return MoveFileExW(temporary.c_str(), target.c_str(), flags) != 0; })) {
    return true;
  }
  deleteQuietly(temporary);  // the final name is untouched
  return false;
}

bool readWhole(const std::wstring& path, std::string& content) {
  const File file(openPatiently(longPath(path), GENERIC_READ, shareAll, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL));
  if (!file.isOpen()) return false;
  std::string buffer(largestDocument + 1, '\0');
  std::size_t length = 0;
  while (length < buffer.size()) {
    DWORD count = 0;
    const auto room = static_cast<DWORD>(buffer.size() - length);
    if (!ReadFile(file.get(), &buffer[length], room, &count, nullptr)) return false;
    if (count == 0) break;
    length += count;
  }
  if (length > largestDocument) return fail(ERROR_FILE_TOO_LARGE);
  buffer.resize(length);
  content = std::move(buffer);
  return true;
}

std::string slotReference(std::string_view slot, std::string_view nonce, std::string_view requestId) {
  std::string text = "{\"nonce\":\"" + std::string(nonce) + "\"";
  if (!requestId.empty()) text += ",\"requestId\":\"" + std::string(requestId) + "\"";
  return text + ",\"schemaVersion\":1,\"slot\":\"" + std::string(slot) + "\"}";
}

std::string pendingRequest(std::string_view candidate, std::string_view requestId, std::uint64_t generation) {
  return "{\"candidate\":\"" + std::string(candidate) + "\",\"expectedGeneration\":" + std::to_string(generation) +
         ",\"requestId\":\"" + std::string(requestId) + "\",\"schemaVersion\":1}";
}

bool findMember(std::string_view document, std::string_view key, std::string& text) {
  int depth = 0;
  for (std::size_t at = 0; at < document.size();) {
    const char c = document[at];
    if (c != '"') {
      if (c == '{' || c == '[') ++depth;
      if (c == '}' || c == ']') --depth;
      ++at;
      continue;
    }
    const std::size_t end = skipString(document, at);
    if (end == std::string_view::npos) return false;
    const std::size_t colon = skipSpace(document, end);
    const bool isKey = depth == 1 && colon < document.size() && document[colon] == ':';
    if (isKey && document.substr(at + 1, end - at - 2) == key) {
      return readValue(document, skipSpace(document, colon + 1), text);
    }
    at = end;
  }
  return false;
}

}  // namespace launcher_client
