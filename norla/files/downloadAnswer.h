#pragma once

#include "norla/core/CNetRequest.h"
#include "norla/files/CDownloadRecord.h"

#include <optional>

namespace norla {

/// What is known of the resource that a file is made of. A value.
struct CKnownResource {
    bool isKnown = false; ///< something of it has come, or a record tells of it
    CValidators validators;
    std::optional<long long> total; ///< in bytes
    bool takesRanges = false;       ///< the server says that it gives parts
    long long modified = -1;        ///< seconds since 1970; -1: unknown
};

/// Which part of it an attempt asks for.
struct CAskedPart {
    long long start = 0;
    std::optional<long long> end; ///< behind the last byte; empty: up to the end of the resource
    bool isPart = false;          ///< false: the whole was asked for, without a range

    friend bool operator==(const CAskedPart&, const CAskedPart&) = default;
};

/// What the server has answered, before the first byte of a body.
struct CDownloadAnswer {
    int status = -1; ///< of HTTP; -1 for other protocols
    const CNetRequest::HeaderMap& headers;
    std::optional<long long> announced; ///< bytes of the body
    long long fileTime = -1;            ///< seconds since 1970; -1: unknown
};

enum class AnswerVerdict {
    Fits,     ///< the body is the part that was asked for
    StartAnew ///< it is another resource than before, or the server gives no parts: what is there is of no use
};

/// Compares an answer with what was asked for, and learns from the first one what the resource is.
/// @param known filled where nothing was known; else only what was not told before is added
/// @throws kx::CError naming what was asked for and what came, where that is neither
AnswerVerdict judgeAnswer(const CAskedPart& asked, const CDownloadAnswer& answer, CKnownResource& known);

} // namespace norla
