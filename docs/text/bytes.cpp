#include "kx/base/CError.h"
#include "kx/text/String.h"
#include "kx/text/numbers.h"

#include <string>

// What a file or an answer holds, when nobody has said what it is: UTF-8, or else ISO 8859-1, which any bytes are.
kx::String textOf(const std::string& bytes)
{
    try {
        return kx::String::fromUTF8(bytes);
    } catch (const kx::CError&) { // "... at position 3 ..."
        return kx::String::fromLatin1(bytes);
    }
}

// "3 of 1000 files", under every locale.
kx::String countText(long long done, long long all)
{
    return kx::toString(done) + " of " + kx::toString(all) + " files";
}
