// Standard output and standard error of a console program.
#pragma once

#include <string_view>

namespace launcher_stub::os {

enum class Stream { output, errors };

// Writes UTF-8 text: to a console as the characters that it means, whatever the console's code page; to a file or pipe
// as its bytes. False: it could not be written whole.
bool writeText(Stream stream, std::string_view text);

}  // namespace launcher_stub::os
