#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "norla/core/IDataSource.h"

#include <algorithm>
#include <utility>

namespace norla {

/// A part of a source as a source of its own. Who uses one of them uses none of the others meanwhile.
class CS3SourceRange : public kx::CBase, public virtual IDataSource {
public:
    /// @param start, size in bytes, 0 or more
    CS3SourceRange(kx::P<IDataSource> source, long long start, long long size)
        : m_source(std::move(source))
        , m_start(start)
        , m_size(size)
    {
    }

    int read(unsigned char* buffer, int size, const HeaderMap& responseHeaders) override
    {
        const long long left = std::max(0LL, m_size - getPosition());
        const int wanted = static_cast<int>(std::min<long long>(size, left));
        return wanted > 0 ? m_source->read(buffer, wanted, responseHeaders) : 0;
    }

    long long getLength() override { return m_size; }
    void seek(long long position) override { m_source->seek(m_start + position); }
    long long getPosition() override { return m_source->getPosition() - m_start; }

private:
    const kx::P<IDataSource> m_source;
    const long long m_start;
    const long long m_size;
};

} // namespace norla
