#include "kx/base/systemErrorText.h"

#include "kx/text/numbers.h"

#include <cstring>

namespace kx {

String systemErrorText(int errorNumber)
{
    const char* const text = strerrordesc_np(errorNumber); // unlike strerror(), in English everywhere
    return text ? String::fromLatin1(text) : "Unknown error " + toString(errorNumber);
}

} // namespace kx
