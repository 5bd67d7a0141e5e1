#pragma once

#include "norla/s3/CS3Client.h"

#include <functional>
#include <utility>

namespace norla {

/// As long as it lives all that the client performs is performed by this function, which throws as
/// CNetRequest::perform().
class CS3PerformedBy {
public:
    CS3PerformedBy(CS3Client& client, std::function<void(CNetRequest&)> performer)
        : m_client(client)
    {
        m_client.m_performer = std::move(performer);
    }
    CS3PerformedBy(const CS3PerformedBy&) = delete;
    CS3PerformedBy& operator=(const CS3PerformedBy&) = delete;
    ~CS3PerformedBy() { m_client.m_performer = nullptr; }

private:
    CS3Client& m_client;
};

} // namespace norla
