#pragma once

#include "kx/base/CBase.h"
#include "norla/core/CNetRequest.h"

#include <atomic>
#include <string>
#include <sys/stat.h>

namespace norla {

/// A file that is sent as it was when this object was made: when it changes that is an error before the last of its
/// bytes is given away. Errors are kx::CError and name the path. read(), seek() and getPosition() on the thread of the
/// transfer, everything else on any.
class CUploadSource : public kx::CBase, public virtual CNetRequest::IDataSource {
public:
    /// @throws also for what is no regular file; does not wait for a pipe's other end
    explicit CUploadSource(const CNetRequest::Path& path);
    CUploadSource(const CUploadSource&) = delete;
    CUploadSource& operator=(const CUploadSource&) = delete;
    ~CUploadSource() override;

    int read(unsigned char* buffer, int size, const CNetRequest::HeaderMap& responseHeaders) override;
    long long getLength() override { return m_before.st_size; }
    void seek(long long position) override;
    long long getPosition() override { return m_position; }

    const CNetRequest::Path& getPath() const noexcept { return m_path; }

    /// An attempt begins: nothing of it was read.
    void forgetReads() noexcept { m_reached = -1; }

    /// Behind the last byte that was read since then; -1 for none, not even the end of an empty file.
    long long getReached() const noexcept { return m_reached; }

    /// That many bytes. @throws also when they are not there
    std::string bytesAt(long long position, long long size) const;

    /// Of size, times, first and last bytes, as 16 hexadecimal digits: the same as long as the file is.
    std::string digits() const;

    /// Also that the path still leads to this file.
    void requireUnchanged() const;

    /// Whether an error was that it has changed.
    bool hasChanged() const noexcept { return m_hasChanged; }

private:
    size_t readAt(long long position, void* buffer, size_t size) const;
    void requireSame(const struct stat& now) const;
    [[noreturn]] void failChanged() const;
    [[noreturn]] void fail(const kx::String& reason) const;

    const CNetRequest::Path m_path;
    int m_file = -1;
    struct stat m_before {};
    std::atomic<long long> m_position = 0;
    std::atomic<long long> m_reached = -1;
    mutable std::atomic<bool> m_hasChanged = false;
};

} // namespace norla
