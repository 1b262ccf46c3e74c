// The entries of a directory as the directory itself holds them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace launcher_stub::os {

// Of a link, not of what it leads to.
struct ListedEntry {
  std::wstring name;
  std::uint32_t attributes = 0;  // the system's bits
  std::uint64_t lastWriteTime = 0;
};

inline bool has(const ListedEntry& entry, std::uint32_t attribute) { return (entry.attributes & attribute) != 0; }

// Lists `path`. The Win32 error code tells why a list is not complete.
std::uint32_t readEntries(const std::wstring& path, std::vector<ListedEntry>& entries);

}  // namespace launcher_stub::os
