#pragma once

#include "kx/base/language.h"

namespace norla {

/// What CNetRequest::setSafeDefaults() asks for, line by line. Each can be switched off or given another number:
/// `request->setSafeDefaults({.maxRedirects = 3, .secretsStayWithTheirHost = false})`.
///
/// A line sets options of libcurl where it needs some: what is set afterwards by another setter counts in its place. A
/// line that is switched off leaves libcurl's options as they are, also those that an earlier call has set; only
/// reset() takes these back.
struct CSafeDefaults {
    /// Redirects lead to http and https only, and from https to https only: nothing is connected to otherwise, and the
    /// error says where the redirect would have led (CURLE_UNSUPPORTED_PROTOCOL). A CURLOPT_REDIR_PROTOCOLS_STR that is
    /// set afterwards counts in its place.
    bool redirectsStaySafe = true;

    /// One redirect more is an error (CURLE_TOO_MANY_REDIRECTS). 0: the first is; negative: left to libcurl, whose
    /// older versions have no limit.
    int maxRedirects = 10;

    /// Once a redirect has led to another host, port or scheme, the transfer sends no more cookie texts
    /// (CURLOPT_COOKIE), referrers (CURLOPT_REFERER, CURLOPT_AUTOREFERER) and custom headers, but those that tell no
    /// secret: Accept, Accept-..., Content-..., Cache-Control, Connection, Date, Digest, DNT, Expect, If-..., Pragma,
    /// Prefer, Priority, Range, TE, Trailer, Transfer-Encoding, Upgrade-Insecure-Requests and User-Agent. Names,
    /// passwords and tokens that are set as options stay with their host, too, unless CURLOPT_UNRESTRICTED_AUTH is set
    /// afterwards. A body goes where 307 and 308 send it, and whoever asks for a client certificate
    /// gets it.
    bool secretsStayWithTheirHost = true;

    /// TLS 1.2 or newer, and a certificate of a known issuer, for that host; of proxies of scheme "https" too. Who is
    /// known, what is shown to the server and a newer version that is demanded stay as set
    /// (CNetRequest::setTLSOptions()).
    bool verifyTLS = true;

    /// SSH servers are known or refused: those of the user's .ssh/known_hosts, unless something else was set
    /// (CNetRequest::setSSHOptions(), setSSHKnownHostsPath()). How to log in stays as set.
    bool verifySSH = true;

    /// Bodies of known size below that, in bytes, are sent without asking first whether they are welcome ("Expect:
    /// 100-continue"), which costs a second with servers that do not answer. A custom header "Expect" goes before. 0:
    /// left to libcurl, whose older versions ask before every PUT; newer ones ask beyond a mebibyte alone.
    long long expectFrom = 1024LL * 1024;

    /// What the default receive buffer may hold, in bytes, unpacked; more is an error (CURLE_FILESIZE_EXCEEDED). Sinks
    /// and streams of the caller's take what they like. 0: no limit.
    long long maxReceiveBuffer = 64LL * 1024 * 1024;

    /// What all header and reply lines of a transfer may amount to, in bytes, with those of interim answers, redirects
    /// and proxies; more is an error (CURLE_FILESIZE_EXCEEDED). libcurl itself takes at most 300 KB of an HTTP
    /// answer, and older versions of all lines of a transfer. 0: no other limit.
    long long maxHeaders = 1024LL * 1024;

    /// The protocol that was spoken last decides what an answer means, and not the text of the URL: whether a status is
    /// an error and has header fields, and what getResponseCodeDomain() says after a transfer. That matters for URLs
    /// without a scheme, and in the background for such in capitals. Header lines that end in a line feed alone are
    /// understood as others are, and an answer that breaks off among them is an error, where libcurl sees an empty one.
    bool judgeByProtocol = true;

    /// No custom header, FTP or SFTP command, sender or recipient holds a line end, with which a text from elsewhere
    /// would begin another one: kx::CInvalidArgError when the transfer begins, before anything is sent. URLs, methods
    /// and the texts of most options are refused with line ends anyway.
    bool oneLineEach = true;
};

} // namespace norla
