#pragma once

#include <string>

inline std::string repeated(const std::string& text, int count)
{
    std::string all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

/// A document of so many elements in one another.
inline std::string nestedXML(int depth)
{
    return repeated("<a>", depth) + repeated("</a>", depth);
}
