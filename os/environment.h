// This process's environment.
#pragma once

#include <string>

namespace launcher_stub::os {

// A private copy of a variable's value; empty when it is not set.
std::wstring readEnvironmentVariable(const std::wstring& name);

}  // namespace launcher_stub::os
