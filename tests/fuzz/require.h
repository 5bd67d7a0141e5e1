#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends a fuzz run with a crash, which the fuzzer reports with the input that led to it.
inline void require(bool condition, const char* what)
{
    if (condition)
        return;
    std::fprintf(stderr, "broken promise: %s\n", what);
    std::abort();
}
