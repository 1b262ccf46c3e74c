#include "os/command_line.h"

#include <windows.h>

#include <shellapi.h>

#include <memory>

namespace launcher_stub::os {

std::vector<std::wstring> readCommandLineArguments() {
  struct Freed {
    void operator()(wchar_t** list) const noexcept { LocalFree(list); }
  };
  int count = 0;
  const std::unique_ptr<wchar_t*, Freed> elements(CommandLineToArgvW(GetCommandLineW(), &count));
  if (elements == nullptr || count < 1) return {};
  return {elements.get() + 1, elements.get() + count};  // from 1: the first element is the program's own path
}

}  // namespace launcher_stub::os
