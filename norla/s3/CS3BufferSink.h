#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"

namespace norla {

/// Keeps a body in a buffer, in place of what that held.
class CS3BufferSink : public kx::CBase, public virtual CNetRequest::IDataSink {
public:
    /// @param most bytes; -1: any number
    /// @param what has come, for the error
    CS3BufferSink(kx::P<CNetRequest::Buffer> buffer, long long most, const kx::String& what);
    CS3BufferSink(const CS3BufferSink&) = delete;
    CS3BufferSink& operator=(const CS3BufferSink&) = delete;
    ~CS3BufferSink() override;

    void begin() override { m_buffer->setSize(0); }

    /// @throws kx::CError "... has more than ... bytes."
    int write(const unsigned char* data, int size, int responseCode, const HeaderMap& responseHeaders) override;
    bool canBeginAgain() const override { return true; }

private:
    const kx::P<CNetRequest::Buffer> m_buffer;
    const long long m_most;
    const kx::String m_what;
};

} // namespace norla
