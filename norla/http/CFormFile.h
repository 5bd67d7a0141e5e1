#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/files/CInputFile.h"

namespace norla {

/// A file of a form. It is open only while it is read, so that a form may have more files than a process may open.
class CFormFile : public kx::CBase, public virtual kx::IInStream {
public:
    using Path = kx::CInputFile::Path;

    /// @throws kx::CError which names path and reason when it cannot be read, and for a directory. A pipe is not opened
    /// here: that would wait, and take what comes through it.
    explicit CFormFile(const Path& path);
    CFormFile(const CFormFile&) = delete;
    CFormFile& operator=(const CFormFile&) = delete;
    ~CFormFile() override;

    /// @throws kx::CError also when the file's length is another one than at first
    int read(unsigned char* buffer, int size) override;

    /// When this object was made; -1 for what is no regular file.
    long long getLength() override { return m_length; }

    void seek(long long position) override;
    long long getPosition() override;

    /// All of it was read. @throws kx::CError when it was written to meanwhile
    void finish();

private:
    kx::CInputFile& file();

    const Path m_path;
    long long m_length = -1;
    kx::P<kx::CInputFile> m_file;
};

} // namespace norla
