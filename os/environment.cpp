#include "os/environment.h"

#include <windows.h>

namespace launcher_stub::os {

std::wstring readEnvironmentVariable(const std::wstring& name) {
  std::wstring value;
  DWORD needed = GetEnvironmentVariableW(name.c_str(), nullptr, 0);
  // More than once only if another thread lengthens the variable between the two calls.
  while (needed > value.size()) {
    value.resize(needed);
    needed = GetEnvironmentVariableW(name.c_str(), value.data(), needed);
  }
  value.resize(needed);  // the second call reports the length without the final zero; 0 where there is no such variable
  return value;
}

}  // namespace launcher_stub::os
