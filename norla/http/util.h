#pragma once

#include "kx/base/CError.h"
#include "kx/base/CProps.h"
#include "kx/base/visibility.h"
#include "kx/containers/TMap.h"
#include "kx/files/TPathImpl.h"
#include "kx/text/String.h"
#include "kx/time/CTime.h"

#include <exception>
#include <initializer_list>
#include <utility>

namespace norla {

// All functions here may be called by any thread.

/// Parses an HTTP status line (RFC 9112 section 4), such as "HTTP/1.1 404 Not Found". The code is whatever integer
/// stands there; the reason text comes without surrounding white space and may be empty.
/// @throws kx::CError "Invalid HTTP status line: '...'"; `info` is unchanged then
KX_EXPORT void parseHTTPStatusLine(const kx::String& line, int& code, kx::String& info);

/// The code alone. @throws as parseHTTPStatusLine()
KX_EXPORT int getStatusCodeFromHTTPStatusLine(const kx::String& line);

/// The reason text alone. @throws as parseHTTPStatusLine()
KX_EXPORT kx::String getInfoFromHTTPStatusLine(const kx::String& line);

/// Percent-encodes the UTF-8 form of a text: everything but the unreserved characters of RFC 3986 section 2.3 (letters,
/// digits, "-._~") becomes %xx, in lower case. That differs from CNetRequest::urlEscape(), and signatures depend on it.
/// A text without UTF-8 form counts as empty. Never fails.
/// @param spaceAsPlus a space becomes "+" and not "%20", as in the query of a form
KX_EXPORT kx::String urlEscape(const kx::String& text, bool spaceAsPlus);

/// Decodes %XX of either case and takes the bytes for UTF-8. A "%" without two hexadecimal digits stays as it is. Never
/// fails: what is not UTF-8 in the end, as after "%ff", gives an empty text, and so does a text without UTF-8 form.
/// @param plusAsSpace a "+" becomes a space
KX_EXPORT kx::String urlUnescape(const kx::String& text, bool plusAsSpace);

/// Percent-encodes as kx::CURI::escape() does, upper case, but with "%20" for a space: no "+" is in the result. A text
/// without UTF-8 form counts as empty. Never fails.
/// @param escapeSlash "/" becomes "%2F" and does not stay
KX_EXPORT kx::String formURLEncode(const kx::String& text, bool escapeSlash);

/// "key=value" for each entry, both encoded as above, joined by "&" in the order of the keys; "key=" for an empty
/// value. Empty for an empty map.
KX_EXPORT kx::String formURLEncode(const kx::TMap<kx::String, kx::String>& map, bool escapeSlash);

/// The same for entries that are written down, `formURLEncode({{"a", "1"}, {"b", "2"}}, true)`. Of several with one key
/// the first counts.
KX_EXPORT kx::String formURLEncode(
    std::initializer_list<std::pair<const kx::String, kx::String>> entries, bool escapeSlash);

/// The same for all properties of the set.
KX_EXPORT kx::String formURLEncode(const kx::CProps& props, bool escapeSlash);

/// "key=value" for each entry, both encoded as by urlEscape() with "+" for a space, joined by "&" in the order of the
/// keys; "key=" for an empty value. Empty for an empty map.
KX_EXPORT kx::String encodeURLParams(const kx::TMap<kx::String, kx::String>& map);

/// Reads what encodeURLParams() writes. What it finds is added to the map, in place of earlier values of the same keys;
/// the last of several values of a key counts. A part without "=" is a key with an empty value, and an empty part
/// between two "&" an empty key with an empty value. Never fails; keys and values are decoded as by urlUnescape().
KX_EXPORT void decodeURLParams(const kx::String& text, kx::TMap<kx::String, kx::String>& map);

/// Reads a date as libcurl does, to the second: the three forms of HTTP (RFC 9110 section 5.6.7), those of mail, and
/// more. Without a zone it is UTC.
/// @throws kx::CError "Error parsing timestamp '...'." when it is none or does not fit into a kx::CTime
KX_EXPORT kx::CTime parseTimestamp(const kx::String& text);

/// Whether the text looks like a mail address, to catch slips of the pen: one "@", not at the start, a "." somewhere
/// after it, and no space, control character, quote or angle bracket. It does not check RFC 5322.
KX_EXPORT bool isValidEmailAddress(const kx::String& text);

/// Whether a transfer has failed because the network or the service is down, so that it may succeed later: the host or
/// the proxy was not found, nobody could be connected to, TLS could not be set up, or the server has said so (HTTP 503,
/// FTP 421). False for every error that is not of a transfer.
/// @throws kx::CError if the error's property "responseCode" is not a number
KX_EXPORT bool isNetworkOrServiceDownError(const std::exception& error);

/// The HTTP status that an error tells of, -1 when there is none. Where a transfer failed for another reason than its
/// status, only a status of 400 or more counts.
/// @throws kx::CError if the error's property "responseCode" is not a number
KX_EXPORT int getHTTPStatusCodeFromError(const kx::CError& error);

/// The application's bundle of trusted root certificates, for CNetRequest::setRootCertBundlePath(): the resource
/// "norla/ca-bundle.crt", wherever kx::CResourceManager finds it. Looked for anew in every call; there is no other
/// place where it is looked for.
/// @throws kx::CError "INTERNAL ERROR: Root certificate bundle not found in application resources."
KX_EXPORT kx::TPathImpl<kx::CUnixPathTraits> getRootCertBundlePath();

} // namespace norla
