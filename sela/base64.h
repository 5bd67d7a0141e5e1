#pragma once

#include "kx/containers/TBuffer.h"
#include "kx/text/String.h"

#include <optional>
#include <string>
#include <string_view>

namespace sela {

/// Standard Base64 (RFC 4648 section 4).
/// @param pad whether the text is filled up with "=" to whole groups of four
/// @param breakLines whether "\r\n" follows every 76 characters but the last (RFC 2045 section 6.8)
KX_EXPORT kx::String base64Encode(const unsigned char* data, size_t size, bool pad, bool breakLines);

/// The same as bytes, behind those that the buffer has; for what is large.
/// @param data not within the buffer
KX_EXPORT void base64Encode(
    const unsigned char* data, size_t size, bool pad, bool breakLines, kx::TBuffer<unsigned char>& text);

/// The bytes of such a text, with or without all of its "=". Nothing when it holds anything else, line ends among it,
/// or is no text that an encoder makes.
KX_EXPORT std::optional<std::string> base64Decode(std::string_view text);

} // namespace sela
