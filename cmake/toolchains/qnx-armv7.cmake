# SPDX-License-Identifier: Apache-2.0
# QNX Neutrino on 32-bit ARM, with the compilers of a QNX Software Development Platform 6.6 to 7.1
# whose environment is set up (qnxsdp-env.sh).

set(CMAKE_SYSTEM_NAME QNX)
set(CMAKE_SYSTEM_PROCESSOR armv7le)

set(CMAKE_C_COMPILER qcc)
set(CMAKE_C_COMPILER_TARGET gcc_ntoarmv7le)
set(CMAKE_CXX_COMPILER q++)
set(CMAKE_CXX_COMPILER_TARGET gcc_ntoarmv7le)
set(CMAKE_OBJCOPY ntoarmv7-objcopy CACHE FILEPATH "Puts the usage record into the program")

# Asked for plain C++11, the headers keep the system's own functions back without it.
add_compile_definitions(_QNX_SOURCE)

set(CMAKE_FIND_ROOT_PATH "$ENV{QNX_TARGET}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# The compilers of ten years warn about different things.
set(BBP_WERROR OFF CACHE BOOL "Warnings are errors")
foreach(option BBP_TOOLS BBP_SIM BBP_TESTS)
    set(${option} OFF CACHE BOOL "Beside the updater nothing is built")
endforeach()
