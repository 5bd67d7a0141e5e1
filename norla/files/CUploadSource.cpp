#include "norla/files/CUploadSource.h"

#include "kx/base/CError.h"
#include "kx/base/systemErrorText.h"
#include "kx/text/hex.h"
#include "kx/text/numbers.h"
#include "sela/CDigest.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace norla {

namespace {

std::string textOfTime(const struct timespec& time)
{
    return std::to_string(time.tv_sec) + '.' + std::to_string(time.tv_nsec);
}

bool areSameTimes(const struct timespec& one, const struct timespec& other)
{
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

} // namespace

CUploadSource::CUploadSource(const CNetRequest::Path& path)
    : m_path(path)
{
    const std::string name = path.toBytes();
    if (name.find('\0') != std::string::npos)
        fail(kx::systemErrorText(EINVAL));
    m_file = open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (m_file < 0)
        fail(kx::systemErrorText(errno));
    const int status = fstat(m_file, &m_before);
    if (status == 0 && S_ISREG(m_before.st_mode))
        return;
    const kx::String reason = kx::systemErrorText(status != 0 ? errno : EISDIR);
    close(m_file);
    fail(status != 0 || S_ISDIR(m_before.st_mode) ? reason : "it is no regular file");
}

CUploadSource::~CUploadSource()
{
    close(m_file);
}

int CUploadSource::read(unsigned char* buffer, int size, const CNetRequest::HeaderMap& /*responseHeaders*/)
{
    const long long left = std::min<long long>(size, m_before.st_size - m_position);
    const size_t count = left > 0 ? readAt(m_position, buffer, static_cast<size_t>(left)) : 0;
    // Behind each block, and so behind the last one, which does not leave when anything has changed before.
    struct stat now {};
    if (fstat(m_file, &now) != 0)
        fail(kx::systemErrorText(errno));
    requireSame(now);
    m_position += static_cast<long long>(count);
    m_reached = std::max<long long>(m_reached, m_position);
    return static_cast<int>(count);
}

void CUploadSource::seek(long long position)
{
    if (position < 0 || position > m_before.st_size)
        throw kx::CError(
            "There is no position " + kx::toString(position) + " in the file '" + m_path.toString() + "'.");
    m_position = position;
}

size_t CUploadSource::readAt(long long position, void* buffer, size_t size) const
{
    ssize_t count = -1;
    do {
        count = pread(m_file, buffer, size, position);
    } while (count < 0 && errno == EINTR);
    if (count < 0)
        fail(kx::systemErrorText(errno));
    return static_cast<size_t>(count);
}

std::string CUploadSource::bytesAt(long long position, long long size) const
{
    std::string bytes(static_cast<size_t>(size), '\0');
    for (size_t done = 0; done < bytes.size();) {
        const size_t count = readAt(position + static_cast<long long>(done), bytes.data() + done, bytes.size() - done);
        if (count == 0)
            failChanged();
        done += count;
    }
    return bytes;
}

// The time of the last change of the inode is in it because the one of the bytes can be set back by anybody.
std::string CUploadSource::digits() const
{
    constexpr long long most = 64 << 10;
    constexpr size_t digestBytes = 8;
    const long long size = std::min<long long>(most, m_before.st_size);
    const std::string text = "norla part of a file, 1\n" + std::to_string(m_before.st_size) + '\n'
        + textOfTime(m_before.st_mtim) + '\n' + textOfTime(m_before.st_ctim) + '\n' + bytesAt(0, size)
        + bytesAt(m_before.st_size - size, size);
    sela::CDigest digest("SHA256");
    digest.update(text.data(), text.size());
    digest.finish();
    return kx::hexEncode({reinterpret_cast<const char*>(digest.getBytes()), digestBytes}).toUTF8();
}

void CUploadSource::requireUnchanged() const
{
    struct stat now {};
    if (fstat(m_file, &now) != 0)
        fail(kx::systemErrorText(errno));
    requireSame(now);
    if (stat(m_path.toBytes().c_str(), &now) != 0)
        failChanged();
    requireSame(now);
}

void CUploadSource::requireSame(const struct stat& now) const
{
    if (now.st_size != m_before.st_size || now.st_ino != m_before.st_ino || now.st_dev != m_before.st_dev
        || !areSameTimes(now.st_mtim, m_before.st_mtim) || !areSameTimes(now.st_ctim, m_before.st_ctim))
        failChanged();
}

void CUploadSource::failChanged() const
{
    m_hasChanged = true;
    throw kx::CError("The file '" + m_path.toString() + "' has changed while it was sent.");
}

void CUploadSource::fail(const kx::String& reason) const
{
    throw kx::CError("The file '" + m_path.toString() + "' cannot be read: " + reason + ".");
}

} // namespace norla
