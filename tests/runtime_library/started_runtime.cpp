#include "tests/runtime_library/started_runtime.h"

#include <windows.h>

#include <stdexcept>
#include <utility>

namespace runtime_library {

namespace files = launcher_stub::tests;

StartedRuntime::StartedRuntime() {
  for (const std::wstring& directory :
       {root(), root() + L"\\attempts", attempt(), root() + L"\\slots", install(), install() + L"\\seed"}) {
    files::makeDirectory(directory);
  }
  writeRecord(R"({"nonce":"0123456789abcdef0123456789abcdef","schemaVersion":1,"slot":"seed","startedAt":12345})");
  writeState(R"({"attemptCount":0,"generation":41,"rejected":[],"schemaVersion":1})");
  files::writeFile(scratch(L"program.exe"), "a program");
  files::writeFile(scratch(L"texts.bin"), "texts");

  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  lease_ = CreateFileW((root() + L"\\launch.lock").c_str(), GENERIC_READ, 0, &inheritable, OPEN_ALWAYS, 0, nullptr);
  if (lease_ == INVALID_HANDLE_VALUE) throw std::runtime_error("no lease");
  setVariable(L"QUORVEX_BOOT_STATE_ROOT", root().c_str());
  setVariable(L"QUORVEX_BOOT_ATTEMPT_DIR", attempt().c_str());
  setVariable(L"QUORVEX_BOOT_INSTALL_DIR", install().c_str());
  setVariable(L"QUORVEX_BOOT_LEASE", std::to_wstring(reinterpret_cast<std::uintptr_t>(lease_)).c_str());
}

StartedRuntime::~StartedRuntime() { CloseHandle(lease_); }

void StartedRuntime::writeRecord(const std::string& document) {
  files::writeFile(attempt() + L"\\boot-v1.json", document);
}

void StartedRuntime::writeState(const std::string& document) { files::writeFile(root() + L"\\boot-v1.json", document); }

launcher_client::Launch StartedRuntime::launch() const {
  launcher_client::Launch launch;
  if (!readLaunch(launch)) throw std::runtime_error("readLaunch failed");
  return launch;
}

std::vector<launcher_client::SlotFile> StartedRuntime::update() const {
  return {{scratch(L"program.exe"), L"entry-v1.exe"}, {scratch(L"texts.bin"), L"data/german\\texts.bin"}};
}

void setVariable(const wchar_t* name, const wchar_t* value) { SetEnvironmentVariableW(name, value); }

HeldFile::HeldFile(const std::wstring& path)
    : handle_(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)) {
  if (handle_ == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot hold the file");
}

HeldFile::HeldFile(const std::wstring& path, std::uint32_t duration) : HeldFile(path) {
  later_ = std::thread([this, duration] {
    Sleep(duration);
    letGo();
  });
}

HeldFile::~HeldFile() {
  if (later_.joinable()) later_.join();
  letGo();
}

void HeldFile::letGo() {
  void* handle = std::exchange(handle_, INVALID_HANDLE_VALUE);
  if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
}

std::uint64_t now() { return GetTickCount64(); }

}  // namespace runtime_library
