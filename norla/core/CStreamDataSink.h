#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/streams/IOutStream.h"
#include "norla/core/IDataSink.h"

namespace norla {

/// Writes a response body to a stream.
class KX_EXPORT CStreamDataSink : public kx::CBase, public virtual IDataSink {
public:
    /// @param stream not null; a reference is kept
    explicit CStreamDataSink(kx::IOutStream* stream);

    int write(const unsigned char* data, int size, int responseCode, const HeaderMap& responseHeaders) override;

private:
    const kx::P<kx::IOutStream> m_stream;
};

} // namespace norla
