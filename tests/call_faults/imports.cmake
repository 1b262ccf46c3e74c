# cmake -DNM=... -DLIBRARIES=a.a,b.a -DOUTPUT=... -P imports.cmake: a header with the names of the system's functions
# that these libraries ask for.
string(REPLACE "," ";" libraries "${LIBRARIES}")
set(names)
foreach(library ${libraries})
  execute_process(COMMAND ${NM} --undefined-only ${library} OUTPUT_VARIABLE symbols ERROR_QUIET COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "U __imp_[A-Za-z0-9]+" found "${symbols}")
  foreach(symbol ${found})
    string(REGEX REPLACE "^U __imp_" "" name ${symbol})
    list(APPEND names ${name})
  endforeach()
endforeach()
list(REMOVE_DUPLICATES names)
list(SORT names)
list(JOIN names "\",\n    \"" joined)
file(WRITE ${OUTPUT} "#pragma once
#include <string_view>

namespace call_faults {

constexpr std::string_view launcherImports[] = {
    \"${joined}\",
};

}  // namespace call_faults
")
