// The environment block that the runtime is started with.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace launcher_stub::os {

// This process's environment without the variables of the launcher's own prefix ("QUORVEX_BOOT_", in any case), plus
// the four that tell the runtime where it runs, sorted by name as Windows wants it. Each entry ends in a zero code
// unit, the block in one more. Empty, with the system's last error set, when the environment cannot be read.
std::wstring buildChildEnvironment(const std::wstring& installDirectory, const std::wstring& stateRoot,
                                   const std::wstring& attemptDirectory, std::uint64_t leaseHandleValue);

// --- The steps of it that ask nothing of the system ---

// True when name `a` comes before name `b`.
using NameOrder = std::function<bool(std::wstring_view a, std::wstring_view b)>;

// The entries ("NAME=value") of a block, up to its first empty entry.
std::vector<std::wstring> splitEnvironmentBlock(const wchar_t* block);

// True for an entry whose name begins with the launcher's prefix, ignoring ASCII letter case.
bool isReservedEntry(std::wstring_view entry);

// The name of an entry: the text before its first "=", not counting one in the first place ("=C:=C:\dir" is "=C:").
std::wstring_view entryName(std::wstring_view entry);

// `inherited` without reserved entries, then `added`, stably sorted by `comesBefore` on the names, as one block.
std::wstring composeEnvironmentBlock(const std::vector<std::wstring>& inherited, const std::vector<std::wstring>& added,
                                     const NameOrder& comesBefore);

}  // namespace launcher_stub::os
