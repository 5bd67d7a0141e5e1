#pragma once

#include "kx/base/CError.h"
#include "norla/s3/CS3Client.h"

namespace norla {

/// A file has the client for itself, as long as this lives: several that run, each on its own thread, would spoil each
/// other's signatures.
class CS3ClientClaim {
public:
    /// @throws kx::CError when another file has it
    explicit CS3ClientClaim(CS3Client& client)
        : m_client(client)
    {
        if (m_client.m_isClaimed.exchange(true))
            throw kx::CError("Another file that runs uses this client: files that run at the same time have clients of "
                             "their own.");
    }
    CS3ClientClaim(const CS3ClientClaim&) = delete;
    CS3ClientClaim& operator=(const CS3ClientClaim&) = delete;
    ~CS3ClientClaim() { m_client.m_isClaimed = false; }

private:
    CS3Client& m_client;
};

} // namespace norla
