#pragma once

#include "kx/text/String.h"

namespace norla {

/// Which compressed answers CNetRequest::setAcceptEncoding() asks for, and how large they may become:
///
///     request->setAcceptEncoding({.encodings = "gzip, br", .maxSize = 100 << 20});
struct CAcceptEncoding {
    /// Names with commas between them, of "gzip", "deflate", "br", "zstd" and "identity" (nothing compressed), in
    /// whatever letter case. Empty for all that libcurl can unpack.
    kx::String encodings = {};

    /// How many times the size in which it came the body may have: it ends the transfer when it is larger than that and
    /// than ratioFrom. An answer that was packed twice counts as it came. 0 for no limit, not negative.
    int maxRatio = 250;

    /// Unpacked bytes below which maxRatio is not looked at: few bytes harm nobody, and of small answers the ratio says
    /// little.
    static constexpr long long ratioFrom = 10 << 20;

    /// In bytes of the unpacked body; what was not packed at all counts too. 0 for no limit, not negative.
    long long maxSize = 0;
};

} // namespace norla
