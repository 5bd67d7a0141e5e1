#include "kx/base/onExceptionInDestructorIgnored.h"

#include "kx/log/log.h"

#include <cstdio>

namespace kx {

void onExceptionInDestructorIgnored(const char* className, const std::exception& exception, bool isError) noexcept
{
    try {
        const String text = "Exception in the destructor of " + String::fromLatin1(className) + " (ignored).";
        if (isError)
            logError(exception, text, "");
        else
            logWarning(exception, text, "");
    } catch (...) {
        // Not even the log works (out of memory, or a log handler that throws): say what needs no allocation.
        std::fputs("Exception in a destructor (ignored); it could not be logged.\n", stderr);
    }
}

} // namespace kx
