#pragma once

#include "kx/text/String.h"
#include "kx/time/CTime.h"

namespace norla {

/// A cookie as a server has set it (RFC 6265), for people to look at. What is not UTF-8 is shown as ISO 8859-1.
struct CCookie {
    /// Such as "example.com", without a dot before it.
    kx::String domain;

    /// Whether it is sent to "www.example.com" too.
    bool hasSubdomains = false;

    /// Of the URLs that it is sent to, beginning with "/".
    kx::String path;

    kx::String name;
    kx::String value;

    /// Not set for one that lasts as long as the session, whatever the program takes for one. libcurl 8 lets none last
    /// longer than 400 days.
    kx::CTime expiry = {};

    /// Sent over https alone, and to the machine itself.
    bool isSecure = false;

    /// Not for the scripts of a web page, which nobody here runs.
    bool isHTTPOnly = false;

    friend bool operator==(const CCookie&, const CCookie&) = default;
};

} // namespace norla
