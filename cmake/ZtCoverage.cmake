# The target coverage runs all tests and prints line and branch coverage of the folders that parse
# what strangers send: platform/rpc and shared/dce (needs gcovr).

find_program(ZT_GCOVR gcovr REQUIRED)
set(gcovr ${ZT_GCOVR} --root "${PROJECT_SOURCE_DIR}" --object-directory "${PROJECT_BINARY_DIR}"
    --filter platform/rpc/ --filter shared/dce/ --exclude-throw-branches
    --exclude-unreachable-branches)
add_custom_target(coverage
  COMMAND ${CMAKE_CTEST_COMMAND} --output-on-failure
  COMMAND ${gcovr}
  COMMAND ${gcovr} --branches
  WORKING_DIRECTORY "${PROJECT_BINARY_DIR}"
  USES_TERMINAL
  VERBATIM)
