# The tests of os/ that ask nothing of the system; they run natively and on Windows.
set(os_portable_tests
  ${CMAKE_CURRENT_LIST_DIR}/command_line_quoting_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/environment_entries_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/failed_action_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/path_test.cpp)
