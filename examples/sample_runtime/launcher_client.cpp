#include "launcher_client.h"

#include <windows.h>

#include <ntsecapi.h>

#include <cstdlib>

namespace launcher_client {
namespace {

constexpr std::size_t largestDocument = 65536;  // bytes; the launcher reads no more
constexpr int lockTries = 100;                  // 50 ms apart: as long as the launcher itself waits

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

std::wstring variable(const wchar_t* name) {
  const DWORD size = GetEnvironmentVariableW(name, nullptr, 0);
  if (size == 0) return {};
  std::wstring value(size, L'\0');
  const DWORD length = GetEnvironmentVariableW(name, value.data(), size);
  if (length >= size) return {};
  value.resize(length);
  return value;
}

// Slot names are plain ASCII.
std::wstring widened(std::string_view ascii) { return {ascii.begin(), ascii.end()}; }

bool isPresent(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

bool deleteKeepingError(const std::wstring& path) {
  const DWORD error = GetLastError();
  const bool deleted = DeleteFileW(path.c_str()) != 0;
  SetLastError(error);
  return deleted;
}

bool writeNewFile(const std::wstring& path, std::string_view content) {
  File file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  return file.isOpen() &&
         WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr) &&
         written == content.size() && FlushFileBuffers(file.get()) && file.close();
}

// Takes the lock that everyone takes who writes the state files. The launcher holds it for moments only.
HANDLE openStateLock(const Launch& launch) {
  const std::wstring path = launch.stateRoot + L"\\state.lock";
  for (int tries = 0; tries < lockTries; ++tries) {
    HANDLE lock = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (lock != INVALID_HANDLE_VALUE || GetLastError() != ERROR_SHARING_VIOLATION) return lock;
    Sleep(50);
  }
  return INVALID_HANDLE_VALUE;
}

// Creates the folders that lie between `directory` and the file `name` in it.
bool createFolders(const std::wstring& directory, const std::wstring& name) {
  for (std::size_t end = name.find_first_of(L"\\/"); end != std::wstring::npos;
       end = name.find_first_of(L"\\/", end + 1)) {
    const std::wstring folder = directory + L"\\" + name.substr(0, end);
    if (!CreateDirectoryW(folder.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) return false;
  }
  return true;
}

// Copies a file and waits until it is on the disk: the slot's marker must not get there first.
bool copyDurably(const std::wstring& source, const std::wstring& target) {
  if (!CopyFileW(source.c_str(), target.c_str(), FALSE)) return false;
  File file(CreateFileW(target.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                        nullptr));
  return file.isOpen() && FlushFileBuffers(file.get());
}

bool writeDelivery(const Launch& launch, const std::wstring& directory, std::string_view deliveryId) {
  std::string record;
  if (!deliveryId.empty()) {
    record = "{\"deliveryId\":\"" + std::string(deliveryId) + "\",\"schemaVersion\":1}";
  } else if (!readWhole(launch.installDirectory + L"\\seed\\delivery-v1.json", record)) {
    return true;  // the seed has none: nothing will be compared
  }
  return writeWhole(directory + L"\\delivery-v1.json", record);
}

// The index right after the string that starts at `start` (its opening quote), or the document's length.
std::size_t skipString(std::string_view document, std::size_t start) {
  std::size_t at = start + 1;
  while (at < document.size() && document[at] != '"') at += document[at] == '\\' ? 2U : 1U;
  return at < document.size() ? at + 1 : document.size();
}

std::size_t skipSpace(std::string_view document, std::size_t at) {
  while (at < document.size() && std::string_view(" \t\r\n").find(document[at]) != std::string_view::npos) ++at;
  return at;
}

}  // namespace

bool readLaunch(Launch& launch) {
  launch.stateRoot = variable(L"QUORVEX_BOOT_STATE_ROOT");
  launch.attemptDirectory = variable(L"QUORVEX_BOOT_ATTEMPT_DIR");
  launch.installDirectory = variable(L"QUORVEX_BOOT_INSTALL_DIR");
  const std::wstring lease = variable(L"QUORVEX_BOOT_LEASE");
  if (launch.stateRoot.empty() || launch.attemptDirectory.empty() || lease.empty()) return false;
  const auto number = static_cast<std::uintptr_t>(wcstoull(lease.c_str(), nullptr, 10));
  launch.lease = reinterpret_cast<void*>(number);  // NOLINT(performance-no-int-to-ptr): a handle's value, as passed on

  std::string record;
  return readWhole(launch.attemptDirectory + L"\\boot-v1.json", record) && findMember(record, "slot", launch.slot) &&
         findMember(record, "nonce", launch.nonce);
}

bool keepLeaseFromChildren(const Launch& launch) {
  return SetHandleInformation(launch.lease, HANDLE_FLAG_INHERIT, 0) != 0;
}

bool writeReady(const Launch& launch) {
  return writeWhole(launch.attemptDirectory + L"\\ready-v1", slotReference(launch.slot, launch.nonce));
}

bool writeHealthy(const Launch& launch) {
  return writeWhole(launch.attemptDirectory + L"\\healthy-v1", slotReference(launch.slot, launch.nonce));
}

bool askForRestart(const Launch& launch, std::string_view requestId) {
  return writeWhole(launch.attemptDirectory + L"\\restart-v1.json",
                    slotReference(launch.slot, launch.nonce, requestId));
}

bool readCurrentGeneration(const Launch& launch, std::uint64_t& generation) {
  std::string state;
  std::string digits;
  if (!readWhole(launch.stateRoot + L"\\boot-v1.json", state) || !findMember(state, "generation", digits)) return false;
  if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) return false;
  generation = strtoull(digits.c_str(), nullptr, 10);
  return true;
}

bool leavePendingRequest(const Launch& launch, std::string_view candidate, std::string_view requestId) {
  // Reading the generation and leaving the request are one step: nothing may change the state in between.
  File lock(openStateLock(launch));
  std::uint64_t generation = 0;
  return lock.isOpen() && readCurrentGeneration(launch, generation) &&
         writeWhole(launch.stateRoot + L"\\pending-v1.json", pendingRequest(candidate, requestId, generation));
}

std::string newRequestId() {
  unsigned char bytes[16];
  if (!RtlGenRandom(bytes, sizeof bytes)) return {};
  std::string id;
  for (const unsigned char byte : bytes) {
    id += "0123456789abcdef"[byte >> 4];
    id += "0123456789abcdef"[byte & 15];
  }
  return id;
}

bool stageSlot(const Launch& launch, std::string_view slot, const std::vector<SlotFile>& files,
               std::string_view deliveryId) {
  const std::wstring directory = launch.stateRoot + L"\\slots\\" + widened(slot);
  if (isPresent(directory + L"\\COMPLETE-v1")) return false;
  if (!CreateDirectoryW(directory.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) return false;
  for (const SlotFile& file : files) {
    if (!createFolders(directory, file.name) || !copyDurably(file.source, directory + L"\\" + file.name)) return false;
  }
  // The marker comes last: whoever sees it may rely on all the rest.
  return isPresent(directory + L"\\entry-v1.exe") && writeDelivery(launch, directory, deliveryId) &&
         writeWhole(directory + L"\\COMPLETE-v1", {});
}

bool writeWhole(const std::wstring& path, std::string_view content) {
  const std::wstring temporary = path + L".new-" + std::to_wstring(GetCurrentProcessId());
  if (!writeNewFile(temporary, content)) {
    (void)deleteKeepingError(temporary);  // as far as it goes; the final name is untouched
    return false;
  }
  for (int tries = 0;; ++tries) {
    if (MoveFileExW(temporary.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) return true;
    const DWORD error = GetLastError();
    // Somebody has the old file open for a moment: the launcher reading it, or a virus scanner.
    if ((error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED) || tries == 40) break;
    Sleep(50);
  }
  (void)deleteKeepingError(temporary);
  return false;
}

bool readWhole(const std::wstring& path, std::string& content) {
  File file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file.isOpen()) return false;
  std::string buffer(largestDocument + 1, '\0');
  std::size_t length = 0;
  while (length < buffer.size()) {
    DWORD count = 0;
    const auto room = static_cast<DWORD>(buffer.size() - length);
    if (!ReadFile(file.get(), buffer.data() + length, room, &count, nullptr)) return false;
    if (count == 0) break;
    length += count;
  }
  if (length > largestDocument) return false;
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
    const std::size_t colon = skipSpace(document, end);
    const bool isKey = depth == 1 && colon < document.size() && document[colon] == ':';
    if (!isKey || document.substr(at + 1, end - at - 2) != key) {
      at = end;
      continue;
    }
    const std::size_t value = skipSpace(document, colon + 1);
    if (value < document.size() && document[value] == '"') {
      text = document.substr(value + 1, skipString(document, value) - value - 2);
    } else {
      text = document.substr(value, document.find_first_of(",}] \t\r\n", value) - value);
    }
    return true;
  }
  return false;
}

}  // namespace launcher_client
