# SPDX-License-Identifier: Apache-2.0
# How tests are declared. A test's name is <preset>/<folder>/<name>, so that the suites of several
# presets can be counted in one ctest summary.
#
# ./dev test is short: it runs what has not the label "full" and builds the target bbp_short_tests.
# ./dev test --full runs everything but what has the label "short": samples of what runs whole there.

set(BBP_PRESET "local" CACHE STRING "The preset's name, the first part of every test's name")
set(BBP_TEST_TIMEOUT 300 CACHE STRING "Seconds after which a test counts as hung")

if(CMAKE_CROSSCOMPILING)
    # Debian has GoogleTest's library for the machine that builds only, and its sources for all.
    # It runs for seconds.
    add_subdirectory(/usr/src/googletest "${PROJECT_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL)
    foreach(target IN ITEMS gtest gtest_main gmock gmock_main)
        target_compile_options(${target} PRIVATE -O0)
    endforeach()
else()
    find_package(GTest REQUIRED)
endif()

add_custom_target(bbp_short_tests)

# What the tests include and nobody changes, read by the compiler once.
file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/test_headers.cpp" CONTENT "")
add_library(bbp_test_headers OBJECT EXCLUDE_FROM_ALL "${PROJECT_BINARY_DIR}/test_headers.cpp")
target_link_libraries(bbp_test_headers PRIVATE GTest::gmock)
target_precompile_headers(bbp_test_headers PRIVATE
    <gmock/gmock.h> <gtest/gtest.h>
    <algorithm> <cstdint> <cstdio> <cstdlib> <cstring> <fstream> <functional> <map> <memory>
    <sstream> <string> <vector>)

# bbp_test_target(<target>): the tests' own code: it is compiled more often than anyone waits for it
# to run. Undefined behaviour is looked for in what is tested; in the test it doubles the build.
function(bbp_test_target target)
    bbp_plain_target(${target})
    # Fixtures in unnamed namespaces stay in one object, whatever gcc thinks of sources that include them.
    target_compile_options(${target} PRIVATE -O0 -fno-sanitize=undefined -fPIE
        $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
    # The headers can be shared by what is compiled alike, and a folder's sources be read as one: each
    # alone would make GoogleTest's templates again, which is half of its time.
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE OFF
                                               UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
    if(NOT target STREQUAL "bbp_test_headers")
        target_precompile_headers(${target} REUSE_FROM bbp_test_headers)
    endif()
endfunction()
bbp_test_target(bbp_test_headers)

# bbp_add_gtest(<folder> <name> SOURCES ... [LIBS ...] [WRAP function ...] [FULL] [SANITIZED] [PARTS n])
# A GoogleTest program <folder>_<name>, run as one ctest test. Each function named after WRAP is
# replaced by the test's own __wrap_<function> when the program is linked. FULL and SANITIZED as in
# bbp_add_test. ROOT names the one test case that needs root: it is a ctest test of its own, which
# counts as skipped for everybody else. PARTS: its test cases, which wait a lot, are dealt to so many ctest
# tests, <name>_0 and so on, that run side by side.
function(bbp_add_gtest folder name)
    cmake_parse_arguments(ARG "FULL;SANITIZED" "ROOT;PARTS" "SOURCES;LIBS;WRAP" ${ARGN})
    set(target "${folder}_${name}")
    add_executable(${target} ${ARG_SOURCES})
    bbp_test_target(${target})
    target_link_libraries(${target} PRIVATE ${ARG_LIBS} GTest::gtest_main)
    foreach(function IN LISTS ARG_WRAP)
        target_link_options(${target} PRIVATE "-Wl,--wrap=${function}")
    endforeach()
    set_target_properties(${target} PROPERTIES
        RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests/bin")
    set(when)
    foreach(word IN ITEMS FULL SANITIZED)
        if(ARG_${word})
            list(APPEND when ${word})
        endif()
    endforeach()
    set(all ${target})
    if(ARG_ROOT)
        list(APPEND all "--gtest_filter=-${ARG_ROOT}")
        bbp_add_test(${folder} ${name}_as_root
            COMMAND ${target} "--gtest_filter=${ARG_ROOT}" ${when} TARGETS ${target})
        set_tests_properties(${BBP_PRESET}/${folder}/${name}_as_root PROPERTIES
            FAIL_REGULAR_EXPRESSION "Running 0 tests" SKIP_REGULAR_EXPRESSION "SKIPPED")
    endif()
    set(tests ${name})
    if(ARG_PARTS)
        math(EXPR last "${ARG_PARTS} - 1")
        set(tests)
        foreach(part RANGE ${last})
            list(APPEND tests ${name}_${part})
        endforeach()
    endif()
    foreach(test IN LISTS tests)
        bbp_add_test(${folder} ${test} COMMAND ${all} ${when} TARGETS ${target})
        # A suite that runs nothing, or not everything, has failed.
        set_tests_properties(${BBP_PRESET}/${folder}/${test} PROPERTIES
            FAIL_REGULAR_EXPRESSION "Running 0 tests;SKIPPED;DISABLED TEST")
        if(ARG_PARTS)
            list(FIND tests ${test} part)
            set_property(TEST ${BBP_PRESET}/${folder}/${test} APPEND PROPERTY ENVIRONMENT
                "GTEST_TOTAL_SHARDS=${ARG_PARTS};GTEST_SHARD_INDEX=${part}")
        endif()
    endforeach()
endfunction()

# bbp_add_test(<folder> <name> COMMAND ... [FULL | SHORT] [SANITIZED] [TARGETS target ...])
# Any other check, as one ctest test. It belongs to both commands with the preset release, and to
# the long one alone with any other. FULL: it takes so long that it belongs to the long one alone.
# SHORT: a sample, which the long one does not need. SANITIZED: it belongs to the short one with the
# preset asan, too. TARGETS: what is built for it beside the programs.
function(bbp_add_test folder name)
    cmake_parse_arguments(ARG "FULL;SHORT;SANITIZED" "" "COMMAND;TARGETS" ${ARGN})
    set(test "${BBP_PRESET}/${folder}/${name}")
    add_test(NAME ${test} COMMAND ${ARG_COMMAND})
    set_tests_properties(${test} PROPERTIES TIMEOUT ${BBP_TEST_TIMEOUT} LABELS ${folder})
    if(BBP_PRESET STREQUAL "asan" AND NOT ARG_SANITIZED)
        set(ARG_FULL TRUE)
    elseif(NOT BBP_PRESET MATCHES "^(asan|release|debug|local)$")
        set(ARG_FULL TRUE)
    endif()
    if(ARG_FULL)
        set_property(TEST ${test} APPEND PROPERTY LABELS full)
    elseif(ARG_TARGETS)
        add_dependencies(bbp_short_tests ${ARG_TARGETS})
    endif()
    if(ARG_SHORT)
        set_property(TEST ${test} APPEND PROPERTY LABELS short)
    endif()
    if(BBP_COVERAGE)
        # Each process leaves its counts; the check of the thresholds comes after all suites.
        set(profile "${PROJECT_BINARY_DIR}/raw/${folder}_${name}-%p.profraw")
        set_tests_properties(${test} PROPERTIES
            ENVIRONMENT "LLVM_PROFILE_FILE=${profile}"
            FIXTURES_REQUIRED coverage_started
            FIXTURES_SETUP coverage_measured)
    endif()
endfunction()
