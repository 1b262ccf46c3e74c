// The generation of a boot state that cannot be read as one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace launcher_stub {

// The file's top-level member "generation", where the document is JSON and the member a string of digits that fits 64
// bits. None for anything else.
std::optional<std::uint64_t> probeGeneration(const std::wstring& path);

}  // namespace launcher_stub
