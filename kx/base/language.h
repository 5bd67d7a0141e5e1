#pragma once

// Every public header includes this one, directly or through others, before it says anything that an older C++ does not
// know.
#if __cplusplus < 202002L
#error "libnorla needs C++20: compile with -std=c++20 or later"
#include <see_the_error_above> // there is none: nothing else ends a compilation at once
#endif
