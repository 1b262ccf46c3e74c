# What leaves this machine says nothing of it: the same sources give the same bytes, in whatever folder they are built.
# And with LAUNCHER_SYMBOLS the same programs are linked once more with everything that a crash address needs.
option(LAUNCHER_SYMBOLS "Keep debug information in the programs and write a link map beside each (./dev package)" OFF)

if(WIN32 AND CMAKE_BUILD_TYPE STREQUAL "Release")
  # The last one that fits counts: the build folder may lie in that of the sources.
  add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}/= -ffile-prefix-map=${CMAKE_BINARY_DIR}=.)
  if(LAUNCHER_SYMBOLS)
    # The compiler makes the same code with and without -g; tools/package_symbols.py holds the two programs together.
    add_compile_options(-g)
    add_link_options(-Wl,-Map=${CMAKE_BINARY_DIR}/$<TARGET_PROPERTY:NAME>.map)
  else()
    # Not stripped later: that would stamp the time into the file.
    add_link_options(-s)
  endif()
endif()
