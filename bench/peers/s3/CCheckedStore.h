#pragma once

#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3Objects.h"
#include "tests/support/CCephServer.h"

#include <filesystem>
#include <string>

namespace bench {

/// The store of a comparison, and what looks whether a program has done its work there. Each throws std::runtime_error
/// saying what is wrong.
class CCheckedStore {
public:
    /// @param largeSize of the largest object, in bytes
    explicit CCheckedStore(long long largeSize);

    support::CCephServer& server() { return m_server; }

    /// By a single request, so that its ETag is its MD5.
    void put(const std::string& bucket, const std::string& key, const std::filesystem::path& file);

    /// Looks whether the object has the bytes of the file, and removes it, with its memory.
    void requireObject(const std::string& bucket, const std::string& key, const std::filesystem::path& file);

    /// Looks how many objects a bucket has, and whether they are of that size.
    void requireCount(const std::string& bucket, int count, long long size);

private:
    support::CCephServer m_server;
    const kx::P<norla::CS3Client> m_client;
    const kx::P<norla::CNetRequest> m_request;
    norla::CS3Objects m_objects;
};

} // namespace bench
