#pragma once

#include "norla/core/CDeadlines.h"
#include "norla/core/CNetRequest.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3EnvironmentCredentials.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace live {

inline norla::CNetRequest::Path pathIn(const char* variable, const char* end = "")
{
    const char* const folder = std::getenv(variable);
    return norla::CNetRequest::Path::fromBytes(folder ? std::string(folder) + end : std::string());
}

/// Beside servers that may say nothing at all.
const norla::CDeadlines limits{
    .connect = kx::CTimeSpan::fromSeconds(5), .inactivity = kx::CTimeSpan::fromSeconds(2), .total = {}};

/// Of a program that transfers one file: the limits, and whom it believes.
/// NORLA_CA_FILE: the roots of TLS. NORLA_SSH_KEY: the private key, beside which the public one has the end ".pub"; the
/// known hosts are those of HOME.
inline void prepareFile(norla::CNetRequest& request, const kx::String& url)
{
    request.setURL(url);
    request.setDeadlines(limits);
    if (std::getenv("NORLA_CA_FILE"))
        request.setRootCertBundlePath(pathIn("NORLA_CA_FILE"));
    if (!std::getenv("NORLA_SSH_KEY"))
        return;
    request.setSSHKnownHostsPath(pathIn("HOME", "/.ssh/known_hosts"));
    request.setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, pathIn("NORLA_SSH_KEY").toString());
    request.setOptionString(CURLOPT_SSH_PUBLIC_KEYFILE, pathIn("NORLA_SSH_KEY", ".pub").toString());
    request.setOptionInt(CURLOPT_SSH_AUTH_TYPES, CURLSSH_AUTH_PUBLICKEY);
}

/// "s3://HOST/BUCKET/KEY": an object of a store without TLS.
struct CStoreURL {
    kx::String host;
    kx::String bucket;
    kx::String key;
};

inline std::optional<CStoreURL> storeURLOf(std::string_view url)
{
    constexpr std::string_view scheme = "s3://";
    if (!url.starts_with(scheme))
        return std::nullopt;
    const size_t bucket = std::min(url.find('/', scheme.size()), url.size());
    const size_t key = std::min(url.find('/', bucket + 1), url.size());
    const auto part = [url](size_t start, size_t end) {
        return start < end ? kx::String::fromUTF8(url.substr(start, end - start)) : kx::String();
    };
    return CStoreURL{
        .host = part(scheme.size(), bucket), .bucket = part(bucket + 1, key), .key = part(key + 1, url.size())};
}

/// For the credentials of the environment, with the limits of prepareFile().
inline kx::P<norla::CS3Client> storeOf(const CStoreURL& place)
{
    auto client = kx::newObj<norla::CS3Client>(
        norla::CS3Endpoint::ceph(place.host, false), kx::newObj<norla::CS3EnvironmentCredentials>().get());
    client->setDeadlines(limits);
    client->setRetryPolicy({.firstPause = kx::CTimeSpan::fromMilliseconds(100)});
    return client;
}

} // namespace live
