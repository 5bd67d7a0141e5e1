#pragma once

#include "norla/s3/CS3RequestToSign.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace norla {

/// The parts of a URL that signatures ask for, as they stand in it.
struct CS3URLParts {
    std::string_view host;  ///< with the port where the scheme has another one by itself
    std::string_view path;  ///< "/" at least
    std::string_view query; ///< without the "?"
};

/// @param url may hold what is not escaped; a fragment is left out
/// @throws kx::CInvalidArgError for a URL without a scheme or a host
CS3URLParts splitS3URL(std::string_view url);

/// Bytes other than A-Z a-z 0-9 - . _ ~ as "%XX", in upper case (RFC 3986 section 2.1). @param kept a further byte that
/// stays as it is; zero for none
std::string escapeForSignature(std::string_view text, char kept = '\0');

/// @throws kx::CInvalidArgError naming a header whose name or value holds a line end or a zero
void requireOneLineHeaders(const CS3RequestToSign::Headers& headers);

/// A request in the one form that both sides know to make of it: method, path, query, headers and digest of the body.
/// Section "Create a canonical request" of the documentation of AWS, with the rules for S3: the path is not normalized,
/// and each byte of it is escaped once.
struct CCanonicalRequest {
    std::string text;
    std::string signedHeaders; ///< "host;range;x-amz-date"

    /// @param query already canonical
    /// @param headers "Host" is not among them when it is the URL's
    /// @throws kx::CInvalidArgError as requireOneLineHeaders()
    CCanonicalRequest(std::string_view method, const CS3URLParts& url, std::string_view query,
        const CS3RequestToSign::Headers& headers, std::string_view payloadHash);
};

/// Names and values of the parameters, unescaped, in their order. A "+" is a space, as stores read it.
/// @param query as it stands in the URL
std::vector<std::pair<std::string, std::string>> queryParameters(std::string_view query);

/// The parameters escaped anew and in order of their bytes.
/// @param query as it stands in the URL
std::string canonicalQuery(std::string_view query);

} // namespace norla
