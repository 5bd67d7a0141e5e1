# Flags live on three INTERFACE targets that our own targets link privately; nothing is global and nothing is exported.

add_library(norla_warnings INTERFACE)
target_compile_options(norla_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
# g++ 12 takes the concatenation of a literal and a std::string for overlapping copies when it optimises (GCC bug 105651).
target_compile_options(norla_warnings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
if(NORLA_WARNINGS_AS_ERRORS)
    target_compile_options(norla_warnings INTERFACE -Werror)
endif()

add_library(norla_sanitizers INTERFACE)
if(NORLA_SANITIZERS)
    target_compile_options(norla_sanitizers INTERFACE
        -fsanitize=${NORLA_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(norla_sanitizers INTERFACE -fsanitize=${NORLA_SANITIZERS})
endif()
if(NORLA_BUILD_FUZZERS)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL Clang)
        message(FATAL_ERROR "NORLA_BUILD_FUZZERS needs clang++, and the compiler is '${CMAKE_CXX_COMPILER}'. "
            "'cmake --preset fuzz' chooses the right one.")
    endif()
    target_compile_options(norla_sanitizers INTERFACE -fsanitize=fuzzer-no-link)
endif()

# For the library alone: tests that count their own lines are slow.
add_library(norla_coverage INTERFACE)
if(NORLA_COVERAGE)
    target_compile_options(norla_coverage INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(norla_coverage INTERFACE --coverage)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND PROJECT_IS_TOP_LEVEL)
    set(CMAKE_CXX_COMPILER_LAUNCHER # which takes on precompiled headers only when it is asked to
        ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
endif()
