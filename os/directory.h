// Listing and removing directories. Failures are Win32 error codes, 0 for success.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace launcher_stub::os {

constexpr std::uint32_t errorDirectoryNotEmpty = 145;

struct DirectoryEntry {
  std::wstring name;
  bool isDirectory = false;  // a directory, or a link that leads to one; false where the status could not be read
  bool timeKnown = false;
  std::uint64_t lastWriteTime = 0;  // in units of 100 ns; of what a link leads to
};

// The entries of `path` without "." and "..", in the order in which the file system returns them. A directory that
// cannot be opened gives none; an error on the way ends the list there.
std::vector<DirectoryEntry> listDirectory(const std::wstring& path);

// Removes an empty directory, or a link to a directory without touching what it leads to.
std::uint32_t removeEmptyDirectory(const std::wstring& path);

// Removes a directory with all its contents; read-only files too. Never descends through a reparse point at any
// depth: the link goes, what lies behind it stays. Goes on after a failure; returns the first failure's code.
std::uint32_t removeDirectoryTree(const std::wstring& path);

// The system's text for an error code, as UTF-8 without its line end.
std::string systemMessage(std::uint32_t code);

}  // namespace launcher_stub::os
