// The log: UTF-8 lines that end in one line feed. The file is open only while a line is written, so anyone may read it
// meanwhile, and the launcher may delete the directory that it lies in.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace sample_runtime {

void setJournal(const std::wstring& path);
const std::wstring& journalPath();

// Appends "KEY TEXT" to the log. A line feed within the text is written as it is.
void note(std::string_view key, std::string_view text);

void appendLine(const std::wstring& path, std::string_view line);

// The performance counter in milliseconds: the same clock for all processes of this machine.
std::uint64_t milliseconds();

}  // namespace sample_runtime
