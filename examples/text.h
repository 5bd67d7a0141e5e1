#pragma once

#include "examples/exitCodes.h"
#include "kx/files/TPathImpl.h"
#include "kx/text/numbers.h"

#include <string>

/// What the command line and the environment give is bytes. Files are named by such bytes as they are; everything else
/// is text in UTF-8.
using Path = kx::TPathImpl<kx::CUnixPathTraits>;

/// @param name what an error calls the bytes, which are not shown: they may hold a password
inline kx::String textOf(const std::string& bytes, const kx::String& name)
{
    try {
        return kx::String::fromUTF8(bytes);
    } catch (const kx::CError&) {
        throw usageError(name + " is not text in UTF-8");
    }
}

/// The name of a file, or any other word of the command line, for an error.
inline kx::String shownPath(const std::string& bytes)
{
    return Path::fromBytes(bytes).toString();
}

/// A whole number from `least` to `most`.
inline long long numberOf(const kx::String& text, const kx::String& name, long long least, long long most)
{
    try {
        const long long number = kx::parseInt64(text, false);
        if (number >= least && number <= most)
            return number;
    } catch (const kx::CError&) { // told below, like a number that is too small or too large
    }
    throw usageError(
        name + " is no whole number from " + kx::toString(least) + " to " + kx::toString(most) + ": '" + text + "'");
}

/// For the path of a URL, where bytes are bytes, whatever letters they are meant for: those outside ASCII become %xx.
inline kx::String escapedBytes(const std::string& bytes)
{
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x80)
            text += character;
        else
            text.append({'%', digits[byte >> 4], digits[byte & 15]});
    }
    return kx::String::fromLatin1(text);
}
