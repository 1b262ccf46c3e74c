# The tests of the simulation itself.
file(GLOB simulation_tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*_test.cpp)
