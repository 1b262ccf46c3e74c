// A process that the runtime starts and that may outlive it: this same executable with a special first argument.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sample_runtime {

// Starts one that lives for `duration` ms and, with a path, keeps that file open for itself all the while.
// Its process id, or 0.
std::uint32_t startGrandchild(std::uint32_t duration, const std::wstring& heldFile);

bool isGrandchild(const std::vector<std::wstring>& arguments);

// The life of such a process; what it returns is its exit code.
int runGrandchild(const std::vector<std::wstring>& arguments);

// Opens (creating it if needed) a file that nobody else can open then. Null on failure.
void* openForItself(const std::wstring& path);

}  // namespace sample_runtime
