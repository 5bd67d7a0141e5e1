#pragma once

#include "kx/base/CError.h"
#include "kx/base/P.h"
#include "norla/s3/CS3Client.h"

namespace norla {

/// An attempt at a request of a client's that somebody else performs, with all that performRequest() does about a
/// failure but for trying again. Used by the client's thread, and no longer than the client.
class CS3Attempt {
public:
    explicit CS3Attempt(CS3Client& client) noexcept
        : m_client(&client)
    {
    }

    /// The request has been prepared.
    void begin(CNetRequest& request)
    {
        m_attempt = {};
        m_client->beginAttempt(m_attempt, request);
    }

    /// What performRequest() would throw: a CS3Error where the store says why.
    kx::P<kx::CError> explain(CNetRequest& request, const kx::CError& error) const
    {
        kx::P<kx::CError> failure = error.clone();
        try {
            m_client->throwBetterError(request, *failure);
        } catch (const kx::CError& better) {
            return better.clone();
        }
        return failure;
    }

    /// Whether the client knows better now, about time or region: then the request is to be prepared and performed once
    /// more, at once, without begin(). Of what the store says of each, an attempt heeds one answer.
    bool isCorrected(CNetRequest& request, const kx::CError& error)
    {
        return m_client->isCorrected(m_attempt, request, error);
    }

private:
    CS3Client* m_client;
    CS3Client::CCorrectedAttempt m_attempt;
};

} // namespace norla
