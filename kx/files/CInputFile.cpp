#include "kx/files/CInputFile.h"

#include "kx/base/CError.h"
#include "kx/base/systemErrorText.h"
#include "kx/text/numbers.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace kx {

CInputFile::CInputFile(const Path& path)
    : m_path(path)
{
    const std::string name = path.toBytes();
    if (name.find('\0') != std::string::npos)
        fail(EINVAL);
    do {
        m_file = open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    } while (m_file < 0 && errno == EINTR); // which waiting for the other end of a pipe may be
    if (m_file < 0)
        fail(errno);
    try {
        learnLength();
    } catch (const CError&) {
        close(m_file);
        throw;
    }
}

CInputFile::~CInputFile()
{
    close(m_file);
}

void CInputFile::learnLength()
{
    struct stat status {};
    if (fstat(m_file, &status) != 0)
        fail(errno);
    if (S_ISDIR(status.st_mode))
        fail(EISDIR);
    char first = 0;
    const bool isMadeUp = status.st_size == 0 && pread(m_file, &first, 1, 0) > 0;
    if (!S_ISREG(status.st_mode) || isMadeUp)
        return;
    m_length = status.st_size;
    m_writtenAt = status.st_mtim;
}

int CInputFile::read(unsigned char* buffer, int size)
{
    const long long left = m_length == -1 ? size : std::min<long long>(size, m_length - m_position);
    if (left <= 0)
        return 0;
    ssize_t count = -1;
    do {
        count = ::read(m_file, buffer, static_cast<size_t>(left));
    } while (count < 0 && errno == EINTR);
    if (count < 0)
        fail(errno);
    if (count == 0 && m_length != -1)
        fail("it has ended behind " + toString(m_position) + " of its " + toString(m_length) + " bytes");
    m_position += count;
    return static_cast<int>(count);
}

void CInputFile::seek(long long position)
{
    if (position == m_position)
        return;
    if (position < 0 || (m_length != -1 && position > m_length))
        throw CError("There is no position " + toString(position) + " in the file '" + m_path.toString() + "'.");
    if (lseek(m_file, position, SEEK_SET) < 0)
        fail(errno);
    m_position = position;
}

void CInputFile::requireUnchanged() const
{
    if (m_length == -1)
        return;
    struct stat status {};
    if (fstat(m_file, &status) != 0)
        fail(errno);
    if (status.st_size != m_length)
        fail("it has " + toString(static_cast<long long>(status.st_size)) + " bytes now and had " + toString(m_length)
            + " when it was opened");
    if (status.st_mtim.tv_sec != m_writtenAt.tv_sec || status.st_mtim.tv_nsec != m_writtenAt.tv_nsec)
        fail("it was written to while it was read");
}

void CInputFile::fail(int errorNumber) const
{
    fail(systemErrorText(errorNumber));
}

void CInputFile::fail(const String& reason) const
{
    throw CError("The file '" + m_path.toString() + "' cannot be read: " + reason + ".");
}

} // namespace kx
