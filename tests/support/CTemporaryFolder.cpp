#include "tests/support/CTemporaryFolder.h"

#include "tests/support/files.h"
#include "tests/support/systemError.h"

#include <cstdlib>

namespace support {

namespace {

std::filesystem::path makeFolder()
{
    std::string name = std::filesystem::temp_directory_path() / "norla-test-XXXXXX";
    if (!mkdtemp(name.data()))
        throwSystemError("mkdtemp " + name);
    return name;
}

} // namespace

CTemporaryFolder::CTemporaryFolder()
    : m_path(makeFolder())
{
}

CTemporaryFolder::~CTemporaryFolder()
{
    std::error_code ignored; // a destructor has nobody to tell
    std::filesystem::remove_all(m_path, ignored);
}

const std::filesystem::path& CTemporaryFolder::path() const
{
    return m_path;
}

std::filesystem::path CTemporaryFolder::write(const std::filesystem::path& name, std::string_view bytes) const
{
    const std::filesystem::path file = m_path / name;
    writeFile(file, bytes);
    return file;
}

std::string CTemporaryFolder::read(const std::filesystem::path& name) const
{
    return readFile(m_path / name);
}

} // namespace support
