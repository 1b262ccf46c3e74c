// State files: read whole, replaced whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace launcher_stub::os {

constexpr std::size_t largestDurableFile = 65536;    // bytes; the same limit as the document parser's
constexpr std::uint64_t replaceWaitLimitMs = 2'000;  // how long the final rename keeps retrying
constexpr std::uint32_t retryPauseMs = 50;           // between tries, here and for lock files

// Reads a file of at most 65536 bytes whole. Other processes may read, write, rename or delete it meanwhile.
// False: it is missing, larger, or could not be read; `contents` is then unchanged. No message.
bool readStateFile(const std::wstring& path, std::string& contents);

// Replaces `target` so that a reader finds the old document or the new one, never a mixture and never none; when this
// returns true the new bytes are on the disk under that name. `contents`: at most 65536 bytes, written as they are.
// A target that is held open for a moment (a virus scanner, a reader) is tried again for 2000 ms, every 50 ms.
// False: the old document is untouched; the temporary file beside it is deleted, as far as the system lets us.
bool replaceFileDurably(const std::wstring& target, std::string_view contents);

// Deletes a file. True also when there was none: the file is gone either way.
bool removeFile(const std::wstring& path);

}  // namespace launcher_stub::os
