# SPDX-License-Identifier: Apache-2.0
# Settings and helpers shared by every folder.

option(ZT_BUILD_AGENT "Build hxasim, the simulated agent (needs toml++)" ON)
option(ZT_BUILD_BENCH "Build the benchmarks (needs SQLite)" OFF)
option(ZT_FUZZ "Build the fuzz targets with clang's libFuzzer" OFF)
option(ZT_COVERAGE "Add the target coverage, which runs the tests and prints what they cover" OFF)
option(ZT_HARDEN "Harden what is shipped, and keep the folders of the build out of it" OFF)
set(ZT_SANITIZE "" CACHE STRING "Sanitizers for all code, as -fsanitize= takes them")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(ZT_GENERATED_DIR "${PROJECT_BINARY_DIR}/generated")

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()
string(REPLACE "-DNDEBUG" "" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")
string(REPLACE "-DNDEBUG" "" CMAKE_CXX_FLAGS_RELWITHDEBINFO "${CMAKE_CXX_FLAGS_RELWITHDEBINFO}")

add_library(zt_options INTERFACE)
target_compile_options(zt_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
target_include_directories(zt_options INTERFACE
  "${PROJECT_SOURCE_DIR}" "${ZT_GENERATED_DIR}")

if(ZT_SANITIZE)
  add_compile_options(-fsanitize=${ZT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZT_SANITIZE} -fno-sanitize-recover=all)
  # GCC 12 takes instrumented standard library code (std::function, std::regex) for uninitialized.
  target_compile_options(zt_options INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()

if(ZT_HARDEN)
  add_compile_options(-fPIE -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=." "-ffile-prefix-map=${PROJECT_BINARY_DIR}=build")
  add_link_options(-pie -Wl,-z,relro,-z,now)
endif()

# zt_library(NAME SOURCES a.cpp ... LINKS other ...): a static library of our own code.
function(zt_library name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
  if(arg_SOURCES)
    add_library(${name} STATIC ${arg_SOURCES})
    target_link_libraries(${name} PUBLIC ${arg_LINKS} zt_options)
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE ${arg_LINKS} zt_options)
  endif()
endfunction()

# zt_program(NAME SOURCES a.cpp ... LINKS other ...)
function(zt_program name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LINKS} zt_options)
endfunction()

# zt_test(NAME SOURCES a.cpp ... LINKS other ... [ARGS ...]): a GoogleTest program, one ctest entry.
function(zt_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LINKS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LINKS} zt_options GTest::gtest_main)
  add_test(NAME ${name} COMMAND ${name})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT})
endfunction()

# zt_fuzz(NAME SOURCES target.cpp LINKS other ... [EXAMPLES folder ...]): the target defines
# LLVMFuzzerTestOneInput. With ZT_FUZZ it is a libFuzzer program; otherwise it is linked to
# tests/fuzz/run_corpus.cpp and ctest runs it over tests/fuzz/corpus/NAME and EXAMPLES.
function(zt_fuzz name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINKS;EXAMPLES" ${ARGN})
  if(ZT_FUZZ)
    add_executable(${name} ${arg_SOURCES})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  else()
    add_executable(${name} ${arg_SOURCES} "${PROJECT_SOURCE_DIR}/tests/fuzz/run_corpus.cpp")
    add_test(NAME ${name}
      COMMAND ${name} "${PROJECT_SOURCE_DIR}/tests/fuzz/corpus/${name}" ${arg_EXAMPLES})
    set_tests_properties(${name} PROPERTIES TIMEOUT 120)
  endif()
  target_link_libraries(${name} PRIVATE ${arg_LINKS} zt_options)
endfunction()
