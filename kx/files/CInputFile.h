#pragma once

#include "kx/base/CBase.h"
#include "kx/files/CUnixPathTraits.h"
#include "kx/files/TPathImpl.h"
#include "kx/streams/IInStream.h"

#include <ctime>

namespace kx {

/// A file that is read. It stays open, and what was opened is read to its end even if its name is removed or given to
/// another file meanwhile. A regular file gives the bytes that it had when it was opened: no more of one that grows,
/// and one that becomes shorter is an error, never an early end.
///
/// What is no regular file (a pipe, a device) has no known length and gives what comes until its end, once.
///
/// Used by one thread at a time. Errors are CError and name the path and the reason.
class KX_EXPORT CInputFile : public CBase, public virtual IInStream {
public:
    using Path = TPathImpl<CUnixPathTraits>;

    /// Opens the file, which for a pipe waits for somebody who writes.
    /// @throws CError when that is not possible, and for a directory
    explicit CInputFile(const Path& path);
    CInputFile(const CInputFile&) = delete;
    CInputFile& operator=(const CInputFile&) = delete;
    ~CInputFile() override;

    /// None when the size is below 0. @throws CError when the file cannot be read or has become shorter
    int read(unsigned char* buffer, int size) override;

    /// When it was opened; -1 for what is no regular file, and for files that the system makes up as they are read
    /// (/proc).
    long long getLength() override { return m_length; }

    /// @param position 0 to getLength(); where that is unknown what the system allows, for a pipe no other than
    /// getPosition()
    /// @throws CError on another position
    void seek(long long position) override;
    long long getPosition() override { return m_position; }

    /// For who has read all of it, and wants what was in it at one time. Does nothing where the length is unknown.
    /// @throws CError when the file was written to since it was opened
    void requireUnchanged() const;

    /// As given.
    const Path& getPath() const noexcept { return m_path; }

private:
    void learnLength();
    [[noreturn]] void fail(int errorNumber) const;
    [[noreturn]] void fail(const String& reason) const;

    const Path m_path;
    int m_file = -1;
    long long m_length = -1;
    long long m_position = 0;
    struct timespec m_writtenAt {};
};

} // namespace kx
