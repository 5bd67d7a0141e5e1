#pragma once

#include "norla/s3/CS3StaticCredentials.h"
#include "tests/live/S3Session.h"

#include <string>

namespace live {

/// With a client of an endpoint, which signs in version 4.
class S3EndpointSession : public S3Session {
protected:
    static kx::P<norla::CS3Client> clientOf(const std::string& accessKeyId, const std::string& secretAccessKey)
    {
        const auto credentials
            = kx::newObj<norla::CS3StaticCredentials>(norla::CS3Credentials{.accessKeyId = text(accessKeyId),
                .secretAccessKey = text(secretAccessKey),
                .sessionToken = {},
                .expiry = {}});
        auto client
            = kx::newObj<norla::CS3Client>(norla::CS3Endpoint::ceph(text(store().host()), false), credentials.get());
        client->setMaxRetries(3);
        return client;
    }

    norla::CS3Client& client() { return *m_endpointClient; }

    void put(const kx::String& key, const std::string& content)
    {
        client().putObject(request(), m_bucket, key, content.data(), static_cast<int>(content.size()), "");
    }

private:
    const kx::P<norla::CS3Client> m_endpointClient = clientOf(store().accessKeyId(), store().secretAccessKey());
};

} // namespace live
