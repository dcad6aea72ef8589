# SPDX-License-Identifier: Apache-2.0
# What every target of the project shares: output folders, warnings, language levels.

# The updater needs nothing but the C++ library; what stands beside it is chosen here.
option(BBP_TOOLS "Build bbpimage, bbpwatch and the library that reads the updater's output" ON)
option(BBP_SIM "Build bbpsim, the simulated head unit" ${PROJECT_IS_TOP_LEVEL})
option(BBP_TESTS "Build the tests" ${PROJECT_IS_TOP_LEVEL})
option(BBP_WERROR "Warnings are errors" ON)
option(BBP_STATIC_LIBSTDCXX "Link libstdc++ into the updater, for a root file system without it" OFF)
option(BBP_COVERAGE "Measure what the tests reach of the core (clang 19)" OFF)
option(BBP_FUZZ "Build the fuzz targets in place of the other tests (clang)" OFF)

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# No absolute path in a program: builds in different folders are the same to the byte.
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag("-ffile-prefix-map=from=to" BBP_HAS_FILE_PREFIX_MAP)
if(BBP_HAS_FILE_PREFIX_MAP)
    add_compile_options("-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
endif()

# -Wpedantic is younger than the oldest compiler of the QNX platform, gcc 4.7.
set(BBP_WARNINGS -Wall -Wextra -pedantic -Wconversion -Wshadow)
if(BBP_WERROR)
    list(APPEND BBP_WARNINGS -Werror)
endif()

# bbp_core_target(<target>): a target of the core, C++11 without compiler extensions.
function(bbp_core_target target)
    # Hidden symbols: the compiler may inline a function into its neighbours, as nobody replaces it.
    set_target_properties(${target} PROPERTIES CXX_STANDARD 11 CXX_VISIBILITY_PRESET hidden)
    target_compile_options(${target} PRIVATE ${BBP_WARNINGS} -pedantic-errors
                                             -ffunction-sections)
    target_include_directories(${target} PUBLIC "${PROJECT_SOURCE_DIR}/src")
    if(BBP_COVERAGE AND NOT BBP_TOOLS)
        target_compile_options(
            ${target} PRIVATE -fprofile-instr-generate -fcoverage-mapping -fcoverage-mcdc)
        target_link_options(${target} PUBLIC -fprofile-instr-generate)
    endif()
endfunction()

# bbp_measure_lines(): in a build that measures the tools, too, what is added from here on counts its
# lines.
macro(bbp_measure_lines)
    if(BBP_COVERAGE AND BBP_TOOLS)
        # The counts are in a file from the start: a process that is killed leaves them, too.
        add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-fprofile-instr-generate>
                            $<$<COMPILE_LANGUAGE:CXX>:-fcoverage-mapping>
                            "SHELL:$<$<COMPILE_LANGUAGE:CXX>:-mllvm -runtime-counter-relocation>")
        add_link_options(-fprofile-instr-generate)
    endif()
endmacro()

# bbp_plain_target(<target>): a target of the simulator, the tools or the tests, C++17.
function(bbp_plain_target target)
    set_target_properties(${target} PROPERTIES CXX_STANDARD 17)
    # Only the updater has to be fast. -O3 takes a quarter more to compile.
    target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O2>)
    # A default would hide the enumerator that is new and forgotten.
    target_compile_options(${target} PRIVATE ${BBP_WARNINGS} -Wswitch-enum)
    target_include_directories(${target} PUBLIC "${PROJECT_SOURCE_DIR}/src" "${PROJECT_SOURCE_DIR}")
endfunction()

# bbp_read_headers_once(): the compiler reads the standard library once for all libraries of bbp_target:
# it is half of what a source costs. A build for another system without tests goes without: that system
# needs no header but those that the sources include. clang-tidy goes without, too, and finds what a
# source of these libraries does not include.
function(bbp_read_headers_once)
    if(CMAKE_CROSSCOMPILING AND NOT BBP_TESTS)
        return()
    endif()
    file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/headers.cpp" CONTENT "")
    add_library(bbp_headers OBJECT EXCLUDE_FROM_ALL "${PROJECT_BINARY_DIR}/headers.cpp")
    bbp_plain_target(bbp_headers)
    target_precompile_headers(bbp_headers PRIVATE
        <algorithm> <array> <chrono> <cstdint> <filesystem> <fstream> <functional> <iostream> <map>
        <memory> <optional> <sstream> <stdexcept> <string> <vector>)
endfunction()

# bbp_target(<target>): the same, with these headers.
function(bbp_target target)
    bbp_plain_target(${target})
    get_target_property(type ${target} TYPE)
    # Programs are compiled with other options.
    if(TARGET bbp_headers AND NOT type STREQUAL "EXECUTABLE")
        target_precompile_headers(${target} REUSE_FROM bbp_headers)
    endif()
endfunction()

# bbp_find_headers(<package> <target> <header>): a package of headers alone, which are the same for all
# systems: where the one that is built for has it not, this machine's are taken. The compiler is shown
# that package's folder and none of its neighbours.
function(bbp_find_headers package target header)
    if(NOT CMAKE_CROSSCOMPILING)
        find_package(${package} REQUIRED)
        return()
    endif()
    find_package(${package} QUIET)
    if(TARGET ${target})
        return()
    endif()
    find_path(${package}_HEADERS ${header} REQUIRED NO_CMAKE_FIND_ROOT_PATH)
    get_filename_component(folder ${header} DIRECTORY)
    file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/headers")
    file(CREATE_LINK "${${package}_HEADERS}/${folder}" "${PROJECT_BINARY_DIR}/headers/${folder}"
        SYMBOLIC)
    add_library(${target} INTERFACE IMPORTED)
    target_include_directories(${target} INTERFACE "${PROJECT_BINARY_DIR}/headers")
endfunction()

# What is shipped, and nothing else.
add_custom_target(bbp_programs)

# bbp_ship(<target> [<like>]): a program that is installed with its manual page and, on Linux, the
# shells' completions for it, or those of the program that takes its words like it does.
function(bbp_ship target)
    add_dependencies(bbp_programs ${target})
    install(TARGETS ${target})
    install(FILES "${PROJECT_SOURCE_DIR}/docs/man/${target}.1"
        DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
    if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
        list(APPEND ARGN ${target})
        list(GET ARGN 0 like)
        set(completions "${PROJECT_SOURCE_DIR}/packaging/completions")
        install(FILES "${completions}/bash/${like}" RENAME ${target}
            DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
        install(FILES "${completions}/zsh/_${like}" RENAME _${target}
            DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions")
    endif()
endfunction()
