// The script beside the executable that says what this runtime does. README.md describes its language.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sample_runtime {

// The lines of `script` that hold for the start with this number (the first one is 1), in their order, without comments
// and blank lines: those before the first heading, then those of the section "[start N]", or of "[otherwise]" where
// there is none for this number.
std::vector<std::string> linesForStart(std::string_view script, int start);

// Whether the first line that counts is "impatient": a runtime that gives up when its record cannot be read at once.
bool isImpatient(std::string_view script);

// The directory of this process's executable, without a separator at its end.
std::wstring executableDirectory();

// Notes this start in "starts.txt" beside the executable and returns its number.
int countStart(std::string_view nonce);

// A file of up to `limit` bytes; empty if it cannot be read.
std::string readText(const std::wstring& path, std::size_t limit = 1 << 20);

}  // namespace sample_runtime
