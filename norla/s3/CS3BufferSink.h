#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "norla/core/CNetRequest.h"

namespace norla {

/// Keeps a body in a buffer, in place of what that held.
class CS3BufferSink : public kx::CBase, public virtual CNetRequest::IDataSink {
public:
    explicit CS3BufferSink(kx::P<CNetRequest::Buffer> buffer);
    CS3BufferSink(const CS3BufferSink&) = delete;
    CS3BufferSink& operator=(const CS3BufferSink&) = delete;
    ~CS3BufferSink() override;

    void begin() override { m_buffer->setSize(0); }
    int write(const unsigned char* data, int size, int responseCode, const HeaderMap& responseHeaders) override;
    bool canBeginAgain() const override { return true; }

private:
    const kx::P<CNetRequest::Buffer> m_buffer;
};

} // namespace norla
