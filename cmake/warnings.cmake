# The one place that says which warnings count. All of them are errors.
add_library(project_warnings INTERFACE)
target_compile_options(project_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Werror
  -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wcast-qual -Wcast-align
  -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Wundef -Wunused -Wimplicit-fallthrough
  -Wmissing-declarations
  -Wno-missing-field-initializers  # a designated initialiser means the other fields to keep their defaults
  $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wduplicated-branches -Wlogical-op>)
