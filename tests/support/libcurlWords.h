#pragma once

#include <set>
#include <string>

namespace support {

/// @return whether the libcurl that this process has loaded is of this version or a newer one. It need not be the one
/// whose headers the test was compiled with.
bool isLibcurlSince(unsigned major, unsigned minor);

/// Tests are written in the words of libcurl 7.88.
/// @param text in these words
/// @return the same in the words of the libcurl that this process has loaded. The newer words are those of 8.14;
/// versions between the two were not tried and count as old.
std::string libcurlSays(std::string text);

/// @return what the libcurl that this process has loaded may say of a proxy whose name nobody knows. The newer ones
/// take it for the host if the answer comes late, so that there are two messages.
std::set<std::string> libcurlSaysOfUnknownProxy(const std::string& name);

} // namespace support
