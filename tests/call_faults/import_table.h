// The import table of the running program.
#pragma once

#include <string_view>

namespace call_faults {

// Where the imports of this name lead to; null where the program does not import it.
void* importedFunction(std::string_view name);
// Lets every import of this name lead to `replacement` from now on.
void replaceImport(std::string_view name, void* replacement);

// Whether an address lies in the launcher's own code, as opposed to the run-time library's or the test's. Functions
// that were moved out of their place as unlikely are not recognised.
bool isLauncherCode(const void* address);

}  // namespace call_faults
