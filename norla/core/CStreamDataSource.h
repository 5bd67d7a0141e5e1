#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/streams/IInStream.h"
#include "norla/core/IDataSource.h"

namespace norla {

/// Reads the body to be sent from a stream.
class KX_EXPORT CStreamDataSource : public kx::CBase, public virtual IDataSource {
public:
    /// @param stream not null; a reference is kept
    explicit CStreamDataSource(kx::IInStream* stream);

    int read(unsigned char* buffer, int size, const HeaderMap& responseHeaders) override;
    long long getLength() override;
    void seek(long long position) override;
    long long getPosition() override;

private:
    const kx::P<kx::IInStream> m_stream;
};

} // namespace norla
