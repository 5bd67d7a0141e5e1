#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "norla/core/CNetRequest.h"
#include "norla/s3/CS3Credentials.h"
#include "norla/s3/CS3SignerV4.h"

#include <string>

namespace norla {

/// A body that is signed as it is sent, chunk by chunk, each with the signature of the one before: the form
/// "aws-chunked" of S3. The first one goes on from the signature of the request, as its headers have it when the body
/// begins.
class CS3ChunkedSource : public kx::CBase, public virtual CNetRequest::IDataSource {
public:
    /// @param request whose body it is, and which keeps it
    /// @param size of what the source gives, in bytes
    CS3ChunkedSource(CNetRequest& request, kx::P<CNetRequest::IDataSource> source, long long size);
    CS3ChunkedSource(const CS3ChunkedSource&) = delete;
    CS3ChunkedSource& operator=(const CS3ChunkedSource&) = delete;
    ~CS3ChunkedSource() override;

    /// That of a request whose body is one; else null.
    static CS3ChunkedSource* in(const CNetRequest& request);

    /// What it encodes.
    kx::P<CNetRequest::IDataSource> getSource() const { return m_source; }
    long long getSize() const noexcept { return m_size; }

    /// By what the request was signed, each time before the body begins.
    void setKey(kx::P<CS3SignerV4> signer, const CS3Credentials& credentials);

    /// Of the chunks with all that stands between them.
    static long long encodedSize(long long size) noexcept;

    int read(unsigned char* buffer, int size, const HeaderMap& responseHeaders) override;
    long long getLength() override { return encodedSize(m_size); }
    /// @throws kx::CError for anything but the start
    void seek(long long position) override;
    long long getPosition() override { return m_position; }

private:
    void begin();
    bool makeChunk(const HeaderMap& responseHeaders);
    bool readBytes(const HeaderMap& responseHeaders);

    CNetRequest& m_request;
    const kx::P<CNetRequest::IDataSource> m_source;
    const long long m_size;
    kx::P<CS3SignerV4> m_signer;
    CS3Credentials m_credentials;
    std::string m_timestamp;
    std::string m_signature; // of the chunk before
    std::string m_bytes;     // of the source, for one chunk
    std::string m_chunk;     // encoded
    size_t m_taken = 0;      // of that
    long long m_position = 0;
    long long m_left = 0; // of the source
    bool m_isAtEnd = false;
};

} // namespace norla
