# How this project builds a target: language level, warnings, sanitizers, include roots.
include_guard()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

find_package(Threads REQUIRED)

# Warnings are errors. No path of the build machine reaches a binary, and a compiler cache that shortens the paths changes
# nothing in it.
file(RELATIVE_PATH RYL_ROOT_FROM_BUILD ${CMAKE_BINARY_DIR} ${CMAKE_SOURCE_DIR})
add_library(ryl_options INTERFACE)
target_compile_options(ryl_options INTERFACE
  -Wall -Wextra -Wconversion -Wshadow -Werror
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/= -fmacro-prefix-map=${RYL_ROOT_FROM_BUILD}/=)
if(RYL_SANITIZE)
  target_compile_options(ryl_options INTERFACE
    -fsanitize=${RYL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(ryl_options INTERFACE -fsanitize=${RYL_SANITIZE} -fuse-ld=lld)
endif()

# ryl_target(NAME): the settings above, and the include roots of the tree.
function(ryl_target name)
  target_link_libraries(${name} PRIVATE ryl_options Threads::Threads)
  target_include_directories(${name} PUBLIC
    ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/base ${CMAKE_SOURCE_DIR}/velmarlib)
endfunction()

# ryl_static(NAME SOURCES ... LINKS ...): a static library with hidden visibility. It does not link the base library
# itself: the program or module that it ends in chooses between `ryl` and `ryl_sim`.
function(ryl_static name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  ryl_target(${name})
  target_link_libraries(${name} PUBLIC ${ARG_LINKS})
endfunction()

# ryl_program(NAME SOURCES ... LINKS ...): an executable.
function(ryl_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  ryl_target(${name})
  target_link_libraries(${name} PRIVATE ${ARG_LINKS})
endfunction()

# Test sources are not optimised, as most of their time goes into compiling them.
set(RYL_TEST_OPTIONS "")
if(NOT CMAKE_BUILD_TYPE STREQUAL Debug)
  set(RYL_TEST_OPTIONS -O0 -g1)
endif()

# GCC 12 forgets that a precompiled header is a system header; in its strings these then warn of what is not there.
list(APPEND RYL_TEST_OPTIONS
  $<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds> $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow> $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overread>)

# ryl_test_options(NAME): a target's sources are test sources.
function(ryl_test_options name)
  target_compile_options(${name} PRIVATE ${RYL_TEST_OPTIONS})
  set_target_properties(${name} PROPERTIES RYL_IS_TEST TRUE)
endfunction()

# ryl_test(NAME SOURCES ... LINKS ...): a GoogleTest program; ctest runs each of its tests in a process of its own. Its
# sources find GoogleTest's headers compiled already (tests/support), and include them all the same.
function(ryl_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  ryl_program(${name} SOURCES ${ARG_SOURCES} LINKS ${ARG_LINKS} GTest::gtest GTest::gmock GTest::gtest_main)
  ryl_test_options(${name})
  target_precompile_headers(${name} REUSE_FROM test_headers)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 300)
endfunction()
