# SPDX-License-Identifier: Apache-2.0
# How tests are declared. A test's name is <preset>/<folder>/<name>, so that the suites of several
# presets can be counted in one ctest summary.

set(BBP_PRESET "local" CACHE STRING "The preset's name, the first part of every test's name")
set(BBP_TEST_TIMEOUT 900 CACHE STRING "Seconds after which a test counts as hung")

if(CMAKE_CROSSCOMPILING)
    # Debian has GoogleTest's library for the machine that builds only, and its sources for all.
    add_subdirectory(/usr/src/googletest "${PROJECT_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL)
else()
    find_package(GTest REQUIRED)
endif()

# bbp_add_gtest(<folder> <name> SOURCES ... [LIBS ...] [WRAP function ...])
# A GoogleTest program <folder>_<name>, run as one ctest test. Each function named after WRAP is
# replaced by the test's own __wrap_<function> when the program is linked.
function(bbp_add_gtest folder name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;WRAP" ${ARGN})
    set(target "${folder}_${name}")
    add_executable(${target} ${ARG_SOURCES})
    bbp_quick_target(${target})
    # Undefined behaviour is looked for in what is tested; in the test itself it doubles the build.
    target_compile_options(${target} PRIVATE -fno-sanitize=undefined)
    target_link_libraries(${target} PRIVATE ${ARG_LIBS} GTest::gtest_main)
    foreach(function IN LISTS ARG_WRAP)
        target_link_options(${target} PRIVATE "-Wl,--wrap=${function}")
    endforeach()
    set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests/bin")
    bbp_add_test(${folder} ${name} COMMAND ${target})
    # A suite that runs nothing, or not everything, has failed.
    set_tests_properties(${BBP_PRESET}/${folder}/${name} PROPERTIES
        FAIL_REGULAR_EXPRESSION "Running 0 tests;SKIPPED;DISABLED TEST")
endfunction()

# bbp_add_test(<folder> <name> COMMAND ... [FULL]): any other check, as one ctest test. FULL: it takes
# so long that it runs only with `./dev test --full`.
function(bbp_add_test folder name)
    cmake_parse_arguments(ARG "FULL" "" "COMMAND" ${ARGN})
    set(test "${BBP_PRESET}/${folder}/${name}")
    add_test(NAME ${test} COMMAND ${ARG_COMMAND})
    set_tests_properties(${test} PROPERTIES TIMEOUT ${BBP_TEST_TIMEOUT} LABELS ${folder})
    if(ARG_FULL)
        set_property(TEST ${test} APPEND PROPERTY LABELS full)
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
