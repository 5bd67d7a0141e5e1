#pragma once

#include "kx/text/String.h"

namespace norla {

/// Refuses what libcurl would ask a server for without being able to unpack it.
/// @param names with commas between them; empty passes
/// @param features of libcurl, CURL_VERSION_ bits
/// @throws kx::CInvalidArgError naming the encoding that nobody knows, or that this libcurl lacks
void requireContentEncodings(const kx::String& names, int features);

} // namespace norla
