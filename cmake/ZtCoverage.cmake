# SPDX-License-Identifier: Apache-2.0
# The target coverage runs the tests that reach the folders which parse what strangers send,
# platform/rpc and shared/dce, and prints line and branch coverage of these folders (needs gcovr).

find_program(ZT_GCOVR gcovr REQUIRED)
set(coverage_data "${PROJECT_BINARY_DIR}/coverage.json")
# Counters of an earlier run would be added to, and do not fit sources that have changed since.
# Only these folders' objects are read: the headers' code is compiled into them, the generated stubs
# and the tests.
add_custom_target(coverage
  COMMAND find "${PROJECT_BINARY_DIR}" -name *.gcda -delete
  COMMAND ${CMAKE_COMMAND} -E env ZT_SIMULATION_CALLS=2000
          ${CMAKE_CTEST_COMMAND} --output-on-failure -j 2 -E "sysdb|ztsys|zidl"
  COMMAND ${ZT_GCOVR} --root "${PROJECT_SOURCE_DIR}" --filter "${PROJECT_SOURCE_DIR}/platform/rpc/"
          --filter "${PROJECT_SOURCE_DIR}/shared/dce/"
          --exclude-throw-branches --exclude-unreachable-branches --json "${coverage_data}"
          platform/rpc shared/dce idl tests/platform tests/shared tests/source tests/idl
  COMMAND ${ZT_GCOVR} --root "${PROJECT_SOURCE_DIR}" --add-tracefile "${coverage_data}"
  COMMAND ${ZT_GCOVR} --root "${PROJECT_SOURCE_DIR}" --add-tracefile "${coverage_data}" --branches
          --print-summary
  WORKING_DIRECTORY "${PROJECT_BINARY_DIR}"
  USES_TERMINAL
  VERBATIM)
