// What a runtime finds when the launcher has started it: the directories, the attempt's record, the four variables, and
// an inheritable handle as the lease. The variables are this process's own while the object lives.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "examples/sample_runtime/launcher_client.h"
#include "tests/support/windows_temp_directory.h"

namespace runtime_library {

inline constexpr char nonce[] = "0123456789abcdef0123456789abcdef";

class StartedRuntime {
 public:
  StartedRuntime();
  StartedRuntime(const StartedRuntime&) = delete;
  StartedRuntime& operator=(const StartedRuntime&) = delete;
  ~StartedRuntime();

  std::wstring root() const { return directory_ / L"root"; }
  std::wstring install() const { return directory_ / L"install"; }
  std::wstring attempt() const { return root() + L"\\attempts\\" + wideNonce_; }
  std::wstring slot() const { return root() + L"\\slots\\beef0001"; }  // where tests stage "beef0001"
  std::wstring scratch(const std::wstring& name) const { return directory_ / name; }
  void* lease() const { return lease_; }

  void writeRecord(const std::string& document);
  void writeState(const std::string& document);

  // As readLaunch returns it; fails the test where it does not.
  launcher_client::Launch launch() const;

  // Two files as an update has them: the executable, and one in a folder.
  std::vector<launcher_client::SlotFile> update() const;

 private:
  launcher_stub::tests::TempDirectory directory_{L"lib d'or \u0416 \xd83c\xdf88"};
  std::wstring wideNonce_{nonce, nonce + 32};
  void* lease_ = nullptr;
};

void setVariable(const wchar_t* name, const wchar_t* value);  // null: it is to be missing

// Keeps a file, existing or new, from everybody else; until letGo, or for a time, or for good.
class HeldFile {
 public:
  explicit HeldFile(const std::wstring& path);
  HeldFile(const std::wstring& path, std::uint32_t duration);  // lets go after so many milliseconds
  HeldFile(const HeldFile&) = delete;
  HeldFile& operator=(const HeldFile&) = delete;
  ~HeldFile();

 private:
  void letGo();

  void* handle_;
  std::thread later_;
};

std::uint64_t now();  // milliseconds

}  // namespace runtime_library
