// A temporary installation: the launcher beside its bootstrap, a copy of the runtime as the seed, a state root.
#pragma once

#include <string>

#include "conformance/options.h"

namespace conformance {

class Installation {
 public:
  explicit Installation(const Options& options);
  ~Installation();  // removes it, unless the options say otherwise
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;
  Installation(Installation&&) = delete;
  Installation& operator=(Installation&&) = delete;

  // Lays out the install directory; the launcher makes the state root. False: `problem` is a line about it.
  bool layOut(std::string& problem);

  // Makes the state root, stages the same runtime under this slot name, and leaves the request to try it.
  bool leaveUpdate(const std::string& slot, std::string& problem);

  const std::wstring& directory() const { return install_; }
  const std::wstring& stateRoot() const { return root_; }
  std::wstring launcher() const { return install_ + L"\\launcher.exe"; }
  std::wstring errorFile() const { return base_ + L"\\errors.txt"; }
  std::wstring slotDirectory(const std::string& slot) const;  // also of "seed"
  std::wstring attemptDirectory(const std::string& nonce) const;

 private:
  const Options& options_;
  std::wstring base_;
  std::wstring install_;
  std::wstring root_;
};

}  // namespace conformance
