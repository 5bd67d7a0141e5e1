#pragma once

#include "kx/files/CInputFile.h"
#include "norla/core/CNetRequest.h"

namespace norla {

/// Gives a file as the body to be sent, also again where a redirect or a login asks for it:
///
///     const auto source = kx::newObj<CFileSource>(path);
///     request->setSendDataSource(source.get());
///     request->setSendDataSize(source->getLength());
///
/// A file is what it was when this object was made (kx::CInputFile says how): what it grows by later is not sent, and
/// when it becomes shorter the transfer ends with an error that names it. Removing it or putting another one in its
/// place changes nothing. A pipe has no known length (HTTP sends it in chunks) and is sent once.
///
/// Used by one thread at a time: after a transfer in the background, once that has ended. A request keeps a reference
/// until another body takes its place, reset() or its own end: a source is made with kx::newObj() and never stands on
/// the stack.
class KX_EXPORT CFileSource : public kx::CBase, public virtual CNetRequest::IDataSource {
public:
    /// Waits for somebody who writes when it is a pipe.
    /// @throws kx::CError which names path and reason when the file cannot be read, and for a directory
    explicit CFileSource(const CNetRequest::Path& path);
    ~CFileSource() override;

    /// @throws kx::CError which names path and reason
    int read(unsigned char* buffer, int size, const CNetRequest::HeaderMap& responseHeaders) override;

    /// For CNetRequest::setSendDataSize(), which takes the -1 of an unknown length too.
    long long getLength() override;

    /// @throws kx::CError which names the path, for a pipe of which something was read
    void seek(long long position) override;
    long long getPosition() override;

    kx::CInputFile& getFile() const noexcept { return *m_file; }

private:
    const kx::P<kx::CInputFile> m_file;
};

} // namespace norla
