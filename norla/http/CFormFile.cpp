#include "norla/http/CFormFile.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"

#include <string>
#include <sys/stat.h>

namespace norla {

namespace {

bool isPipeOrDevice(const std::string& name)
{
    struct stat status {};
    return stat(name.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

} // namespace

CFormFile::CFormFile(const Path& path)
    : m_path(path)
{
    if (!isPipeOrDevice(path.toBytes()))
        m_length = kx::newObj<kx::CInputFile>(path)->getLength();
}

CFormFile::~CFormFile() = default;

kx::CInputFile& CFormFile::file()
{
    if (m_file)
        return *m_file;
    if (m_length != -1 && isPipeOrDevice(m_path.toBytes())) // which to open may last for ever
        throw kx::CError(
            "The file '" + m_path.toString() + "' has changed since it was added to the form: it is no file any more.");
    const auto file = kx::newObj<kx::CInputFile>(m_path);
    if (file->getLength() != m_length)
        throw kx::CError("The file '" + m_path.toString() + "' has changed since it was added to the form: it had "
            + kx::toString(m_length) + " bytes and has " + kx::toString(file->getLength()) + ".");
    m_file = file;
    return *m_file;
}

int CFormFile::read(unsigned char* buffer, int size)
{
    return file().read(buffer, size);
}

// What can be opened again is: whatever has its name then is looked at anew.
void CFormFile::seek(long long position)
{
    if (m_length != -1)
        m_file = nullptr;
    if (position != getPosition())
        file().seek(position);
}

long long CFormFile::getPosition()
{
    return m_file ? m_file->getPosition() : 0;
}

void CFormFile::finish()
{
    file().requireUnchanged();
    if (m_length != -1)
        m_file = nullptr;
}

} // namespace norla
