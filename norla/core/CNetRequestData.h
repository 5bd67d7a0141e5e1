#pragma once

// What a request's body goes to and comes from, and who is told of its end.

#include "kx/base/CBase.h"
#include "kx/streams/IInStream.h"
#include "kx/streams/IOutStream.h"
#include "norla/core/CNetRequest.h"

namespace norla {

/// Takes a response body, block by block.
class KX_EXPORT CNetRequest::IDataSink : public virtual kx::IBase {
public:
    /// A transfer begins, the first one or another: for most sinks what an earlier one has written is void. Does nothing
    /// unless a sink says otherwise. What it throws is what resetForPerform() throws.
    virtual void begin() {}

    /// Takes a block; what it returns (the bytes taken) is not looked at. Throwing a std::exception ends the transfer with
    /// that error.
    /// @param size 0 or more
    /// @param responseCode HTTP status; 0 when it cannot be read, -1 for other protocols
    /// @param responseHeaders lower-case name to value
    virtual int write(const unsigned char* data, int size, int responseCode, const HeaderMap& responseHeaders) = 0;
};

/// Gives the body to be sent, block by block. Throwing a std::exception from any operation ends the transfer with that error.
class KX_EXPORT CNetRequest::IDataSource : public virtual kx::IBase {
public:
    /// Fills the buffer with at most `size` bytes.
    /// @param responseHeaders of what the server has answered so far
    /// @return how many; 0 at the end
    virtual int read(unsigned char* buffer, int size, const HeaderMap& responseHeaders) = 0;

    /// In bytes; -1 when unknown.
    virtual long long getLength() = 0;

    /// Goes on at that many bytes from the start: before a transfer, and when a redirect or an authentication makes libcurl
    /// send the body again.
    virtual void seek(long long position) = 0;
    virtual long long getPosition() = 0;
};

/// Told when a transfer has ended.
class KX_EXPORT CNetRequest::IDoneListener : public virtual kx::IBase {
public:
    /// @param error null on success; valid during the call
    virtual void onNetRequestDone(CNetRequest* request, const kx::CError* error) = 0;
};

/// Writes a response body to a stream.
class KX_EXPORT CNetRequest::CStreamDataSink : public kx::CBase, public virtual IDataSink {
public:
    /// @param stream not null; a reference is kept
    explicit CStreamDataSink(kx::IOutStream* stream);
    ~CStreamDataSink() override;

    int write(const unsigned char* data, int size, int responseCode, const HeaderMap& responseHeaders) override;

private:
    const kx::P<kx::IOutStream> m_stream;
};

/// Reads the body to be sent from a stream.
class KX_EXPORT CNetRequest::CStreamDataSource : public kx::CBase, public virtual IDataSource {
public:
    /// @param stream not null; a reference is kept
    explicit CStreamDataSource(kx::IInStream* stream);
    ~CStreamDataSource() override;

    int read(unsigned char* buffer, int size, const HeaderMap& responseHeaders) override;
    long long getLength() override;
    void seek(long long position) override;
    long long getPosition() override;

private:
    const kx::P<kx::IInStream> m_stream;
};

} // namespace norla
